// Looks a capture through, in one pass and in bounded memory. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "field/inspect_link.h"

namespace plendix {

/// What a capture tells.
struct Findings {
    struct Pair {
        std::uint32_t camera = 0, client = 0;  // addresses
        LinkCounts counts;
    };
    std::vector<Pair> pairs;  // in order of addresses
    Incidents incidents;
    std::int64_t first_ns = 0, last_ns = 0;  // datagrams
    std::uint64_t datagrams = 0;
    std::uint64_t unassigned = 0;    // that belong to no request in the capture
    std::uint64_t cut_requests = 0;  // that were not captured whole, so that nobody can tell what they were
    std::uint64_t dropped = 0;       // by the kernel, for full sockets, where the capture tells
};

class Inspector {
public:
    /// Of all cameras, or of one.
    explicit Inspector(std::optional<std::uint32_t> camera = std::nullopt) : only_(camera) {}

    /// The next datagram, in order of time, and the comment of its packet.
    void add(const Datagram& datagram, const std::string& comment);
    /// No datagram comes after those.
    Findings finish();

private:
    struct Camera {
        IdLedger ids;
        std::optional<std::array<std::uint8_t, 6>> mac;
        std::string format;
    };
    struct Client {
        std::uint32_t camera = 0;
        std::uint32_t stranger = 0;  // who sent something in its last transfer; 0: nobody
    };

    void take_notes(const Datagram& datagram, const std::string& comment);
    void take_transfers();
    void take(const Transfer& transfer);
    bool led_astray(const Transfer& transfer);
    void note_trailer(const Transfer& transfer, const Verdict& verdict, Camera& camera);
    Link& link_of(std::uint32_t camera, std::uint32_t client);
    void settle();

    const std::optional<std::uint32_t> only_;
    TransferReader reader_{kept_bytes};
    std::map<std::uint32_t, Camera> cameras_;
    std::map<Endpoint, Client> clients_;
    std::map<std::uint16_t, std::uint32_t> camera_of_port_;  // of a client, the last that had it
    CaptureState capture_;
    using LinkKey = std::pair<std::uint32_t, std::uint32_t>;  // addresses of camera and client
    std::map<LinkKey, Link> links_;
    std::set<LinkKey> unsettled_;  // so that what costs time is what happens, not how many there are
    Findings findings_;
    std::int64_t settled_ns_ = 0;

    static constexpr std::size_t kept_bytes = 160;  // of a datagram: requests and trailers have fewer
};

}  // namespace plendix
