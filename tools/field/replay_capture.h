// A capture as a fleet of cameras can play it again: every camera's transfers with one client. The bytes stay
// in the file and are read when they are sent; some 32 bytes for each datagram are in memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "field/replay_transfer.h"
#include "host/descriptor.h"

namespace plendix {

struct ReplayWishes {
    std::vector<std::uint32_t> cameras;   // addresses; empty: all
    std::optional<std::uint32_t> client;  // otherwise the one with the most transfers with a camera
};

struct CapturedCamera {
    std::uint32_t address = 0;
    std::uint32_t client = 0;                      // whose transfers these are
    std::map<std::uint32_t, std::size_t> others;   // other clients: their numbers of transfers
    std::vector<ReplayTransferPointer> transfers;  // in the order in which they began
    std::size_t pictures = 0, keys = 0;            // keys: H.264 alone
    std::size_t failed = 0;                        // transfers after which the client connected again
    std::size_t cut = 0;                           // pictures of which the file has not all bytes
    std::int64_t duration_ns = 0;
};

class ReplayCapture {
public:
    /// Reads it once. Throws Failure: no capture, no camera, not one of those that are wished for.
    ReplayCapture(const std::filesystem::path& file, const ReplayWishes& wishes);

    const std::vector<CapturedCamera>& cameras() const { return cameras_; }
    /// Why reading ended before the file did; empty otherwise.
    const std::string& remark() const { return remark_; }

    /// Puts the bytes of a datagram into `to`, zeros for those that the file has not. False when the file
    /// has fewer by now. May be called by any thread.
    bool read(const ReplayTransfer& transfer, const ReplaySend& send, link::Bytes& to) const;

private:
    using Transfers = std::vector<ReplayTransferPointer>;
    using ByClient = std::map<std::uint32_t, Transfers>;

    void read(const std::filesystem::path& file, std::map<std::uint32_t, ByClient>& found);
    void choose(std::map<std::uint32_t, ByClient>& found, const ReplayWishes& wishes);

    Descriptor file_;
    std::vector<CapturedCamera> cameras_;
    std::string remark_;
};

}  // namespace plendix
