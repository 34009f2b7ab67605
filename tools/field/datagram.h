// UDP datagrams over IPv4 (RFC 768, RFC 791) within captured packets. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "field/capture_file.h"
#include "link/words.h"

namespace plendix {

/// IPv4 address and port in host order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    bool operator==(const Endpoint& other) const { return address == other.address && port == other.port; }
    bool operator!=(const Endpoint& other) const { return !(*this == other); }
    bool operator<(const Endpoint& other) const {
        return address != other.address ? address < other.address : port < other.port;
    }
};

/// "10.0.0.7:69"
std::string to_text(const Endpoint& endpoint);
/// Reads what it writes; nothing for anything else.
std::optional<Endpoint> endpoint_of(const std::string& text);

struct Datagram {
    std::int64_t time_ns = 0;
    Endpoint from, to;
    const std::uint8_t* payload = nullptr;  // in the packet's memory
    std::size_t size = 0;                   // of the payload as far as it was captured
    std::size_t original_size = 0;          // of the payload on the wire
    std::uint16_t ip_id = 0;
    bool atomic = false;         // as below: the number means nothing
    std::uint64_t position = 0;  // of the payload in the capture's file
};

/// The IPv4 packet within a captured one: behind Ethernet with up to two VLAN tags, Linux cooked headers,
/// BSD loopback or nothing. Nothing where its header is not there whole.
struct Ipv4Packet {
    std::size_t header = 0;   // offset within the captured packet
    std::size_t payload = 0;  // the same
    std::size_t size = 0;     // of the payload as far as it was captured
    std::size_t original_size = 0;
    std::uint8_t protocol = 0;
    bool first = true;  // not a later fragment
    bool whole = true;  // not a fragment at all
    std::uint32_t from = 0, to = 0;
    std::uint16_t id = 0;
    bool atomic = false;  // must not be fragmented: then the identification number means nothing (RFC 6864)
};
std::optional<Ipv4Packet> ipv4_of(const CapturedPacket& packet);

/// Nothing where the packet is no UDP datagram over IPv4 with its headers whole. The first fragment of a
/// datagram counts as the datagram, later ones as nothing.
std::optional<Datagram> datagram_of(const CapturedPacket& packet);

}  // namespace plendix
