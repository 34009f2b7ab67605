#include "field/datagram.h"

#include <algorithm>
#include <charconv>

namespace plendix {
namespace {

constexpr std::uint16_t ipv4_type = 0x0800;
constexpr std::uint16_t vlan_types[] = {0x8100, 0x88A8, 0x9100};
constexpr int most_tags = 2;
constexpr std::uint8_t udp_protocol = 17;
constexpr std::size_t udp_header = 8, least_ip_header = 20;
constexpr std::uint32_t ipv4_family = 2;

std::uint16_t word(const Bytes& data, std::size_t at) {
    return static_cast<std::uint16_t>(data[at] << 8U | data[at + 1]);
}

std::uint32_t number(const Bytes& data, std::size_t at) {
    return static_cast<std::uint32_t>(word(data, at)) << 16U | word(data, at + 2);
}

/// Behind the protocol number at `type`, whose header ends at `end`, and its VLAN tags. Nothing when it
/// is not IPv4.
std::optional<std::size_t> behind_tags(const Bytes& data, std::size_t type, std::size_t end) {
    for (int tags = 0; end <= data.size(); ++tags) {
        const std::uint16_t protocol = word(data, type);
        if (protocol == ipv4_type) return end;
        const bool tagged =
            std::find(std::begin(vlan_types), std::end(vlan_types), protocol) != std::end(vlan_types);
        if (!tagged || tags == most_tags) return std::nullopt;
        type = end + 2;
        end += 4;
    }
    return std::nullopt;
}

/// The family is in the order of the machine that captured.
std::optional<std::size_t> behind_family(const Bytes& data) {
    if (data.size() < 4) return std::nullopt;
    const std::uint32_t family = number(data, 0);
    if (family == ipv4_family || family == ipv4_family << 24U) return 4;
    return std::nullopt;
}

std::optional<std::size_t> network_offset(const CapturedPacket& packet) {
    switch (packet.link_type) {
        case link_ethernet:
            return behind_tags(packet.data, 12, 14);
        case link_cooked:
            return behind_tags(packet.data, 14, 16);
        case link_cooked2:
            return behind_tags(packet.data, 0, 20);
        case link_bsd_loopback:
        case link_open_loopback:
            return behind_family(packet.data);
        case link_raw_ip:
        case link_ipv4:
            return 0;
        default:
            return std::nullopt;
    }
}

}  // namespace

std::string to_text(const Endpoint& endpoint) {
    return address_text(endpoint.address) + ':' + std::to_string(endpoint.port);
}

std::optional<Endpoint> endpoint_of(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const auto address = address_of(text.substr(0, colon));
    Endpoint endpoint{address.value_or(0), 0};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, endpoint.port);
    if (!address || error != std::errc() || stop != end) return std::nullopt;
    return endpoint;
}

std::optional<Ipv4Packet> ipv4_of(const CapturedPacket& packet) {
    const Bytes& data = packet.data;
    const auto begin = network_offset(packet);
    if (!begin || data.size() - *begin < least_ip_header || data[*begin] >> 4U != 4) return std::nullopt;
    const std::size_t header = (data[*begin] & 15U) * std::size_t{4};
    const std::size_t captured = data.size() - *begin;
    std::size_t total = word(data, *begin + 2);
    if (total == 0) total = std::max(packet.original_size, data.size()) - *begin;  // left to the network card
    if (header < least_ip_header || header > captured || total < header) return std::nullopt;
    const std::uint16_t fragment = word(data, *begin + 6);
    Ipv4Packet ip;
    ip.header = *begin;
    ip.payload = *begin + header;
    ip.original_size = total - header;
    ip.size = std::min(captured, total) - header;
    ip.protocol = data[*begin + 9];
    ip.first = (fragment & 0x1FFFU) == 0;
    ip.whole = (fragment & 0x3FFFU) == 0;
    ip.atomic = ip.whole && (fragment & 0x4000U) != 0;
    ip.from = number(data, *begin + 12);
    ip.to = number(data, *begin + 16);
    ip.id = word(data, *begin + 4);
    return ip;
}

std::optional<Datagram> datagram_of(const CapturedPacket& packet) {
    const auto ip = ipv4_of(packet);
    if (!ip || ip->protocol != udp_protocol || !ip->first || ip->size < udp_header) return std::nullopt;
    const Bytes& data = packet.data;
    const std::size_t length = word(data, ip->payload + 4);
    if (length < udp_header || (ip->whole && length > ip->original_size)) return std::nullopt;
    Datagram datagram;
    datagram.time_ns = packet.time_ns;
    datagram.from = {ip->from, word(data, ip->payload)};
    datagram.to = {ip->to, word(data, ip->payload + 2)};
    datagram.payload = data.data() + ip->payload + udp_header;
    datagram.size = std::min(ip->size, length) - udp_header;
    datagram.original_size = length - udp_header;
    datagram.ip_id = ip->id;
    datagram.atomic = ip->atomic;
    datagram.position = packet.position + ip->payload + udp_header;
    return datagram;
}

}  // namespace plendix
