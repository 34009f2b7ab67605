// The transfers between clients and cameras, as a capture shows them.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "field/datagram.h"
#include "link/file_name.h"
#include "link/packet.h"

namespace plendix {

/// One datagram of a transfer.
struct Step {
    enum class From { client, camera, stranger };

    std::int64_t time_ns = 0;  // UTC since 1970, by the clock of the capture
    From from = From::client;
    std::uint32_t address = 0;  // of whoever is at the other end: the camera, or a stranger
    std::uint16_t port = 0;     // the same
    bool cut = false;           // was not captured whole
    bool zeros = false;         // was, and ends in zeros, as the last full block of a picture
    std::uint16_t ip_id = 0;
    std::size_t size = 0;        // bytes on the wire
    std::size_t captured = 0;    // of these, in the capture
    std::uint64_t position = 0;  // of the captured ones in the capture's file
    link::Bytes bytes;           // those of them that are kept
};

/// A request and everything that went to and fro until the client's next one.
struct Transfer {
    std::uint32_t camera = 0;  // IPv4 address, host order
    Endpoint client;
    std::string request;  // the file's name, as it was asked for; whoever asked may have sent anything
    link::FileName name;
    std::vector<Step> steps;  // in order of time; the first is the request
    bool ended = false;       // the client made another request, and had not given this one up
    std::int64_t begin_ns() const { return steps.front().time_ns; }
};

/// Deals datagrams out to transfers. A client has one port for each camera and makes one request at a
/// time, so its port tells to which transfer a datagram belongs, whoever sent it. Memory is bounded by
/// the number of clients, `kept_bytes` and the length of a transfer. One thread.
class TransferReader {
public:
    /// Of each datagram so many bytes are kept.
    explicit TransferReader(std::size_t kept_bytes) : kept_bytes_(kept_bytes) {}

    /// Takes the next datagram, in order of time.
    void add(const Datagram& datagram);
    /// No datagram comes after those.
    void finish();
    /// Transfers that are over, in the order in which they ended. False when there is none.
    bool take(Transfer& transfer);

    /// Datagrams that belong to no transfer: those of a request before the capture began.
    std::uint64_t unassigned() const { return unassigned_; }

private:
    void begin(const Datagram& datagram, const link::ReadRequest& request);
    void append(Transfer& transfer, const Datagram& datagram, Step::From from) const;
    void end(std::map<Endpoint, Transfer>::iterator found, bool by_request);
    void end_idle(std::int64_t now_ns);

    const std::size_t kept_bytes_;
    std::map<Endpoint, Transfer> open_;  // by client
    std::deque<Transfer> over_;
    std::int64_t last_look_ns_ = 0;
    std::uint64_t unassigned_ = 0;
};

}  // namespace plendix
