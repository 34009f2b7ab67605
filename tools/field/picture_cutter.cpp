#include "field/picture_cutter.h"

#include <algorithm>

#include "link/file_name.h"
#include "link/packet.h"

namespace plendix {
namespace {

constexpr std::size_t block_header = 4;       // opcode and number
constexpr std::size_t longest_value = 16;     // of a register: two bytes, in fact
constexpr std::size_t longest_trailer = 128;  // 90 to 93 bytes and some room
constexpr std::size_t longest_words = 512;    // option acknowledgements and refusals
constexpr std::size_t most_clients = 4096;
constexpr std::size_t transport_header = 8;  // of UDP as of ICMP
// Behind its header an ICMP error quotes an IP header, a UDP header and then the datagram.
constexpr std::size_t icmp_kept = transport_header + 20 + transport_header + block_header;
constexpr std::uint8_t icmp_protocol = 1;

}  // namespace

void PictureCutter::cut(CapturedPacket& packet) {
    packet.original_size = std::max(packet.original_size, packet.data.size());
    const auto ip = ipv4_of(packet);
    std::size_t kept = ip ? ip->payload : 0;
    if (const auto datagram = datagram_of(packet))
        kept += transport_header + kept_of(*datagram);
    else if (ip && ip->first)
        kept += ip->protocol == icmp_protocol ? icmp_kept : transport_header;
    if (kept < packet.data.size()) packet.data.resize(kept);
}

std::size_t PictureCutter::kept_of(const Datagram& datagram) {
    const auto packet = link::parse_packet({datagram.payload, datagram.size});
    if (!packet) return 0;
    if (packet->opcode == link::Opcode::read_request) {
        const auto request = link::parse_request(*packet);
        if (!request || datagram.to.port != link::camera_port) return block_header;
        const link::Kind kind = link::parse_file_name(request->name).kind;
        if (transfers_.size() >= most_clients) transfers_.clear();
        transfers_[datagram.from] = {kind == link::Kind::register_read || kind == link::Kind::register_write};
        return datagram.size;
    }
    if (packet->opcode == link::Opcode::data)
        return block_header + kept_of_block(datagram.to, packet->rest.size);
    const bool refusal = packet->opcode == link::Opcode::error;
    if (!refusal && packet->opcode != link::Opcode::options) return block_header;
    auto found = transfers_.find(datagram.to);
    if (refusal && found == transfers_.end()) found = transfers_.find(datagram.from);  // clients refuse, too
    if (found == transfers_.end() || datagram.original_size > longest_words) return block_header;
    if (!refusal) found->second.block_size = link::granted_block_size(*packet).value_or(0);
    return datagram.size;
}

/// A block of the transfer before may come late, when a register was asked for in between: so size
/// counts, too.
std::size_t PictureCutter::kept_of_block(const Endpoint& client, std::size_t size) const {
    const auto found = transfers_.find(client);
    if (found == transfers_.end()) return 0;
    const Transfer& transfer = found->second;
    if (transfer.registers) return size <= longest_value ? size : 0;
    return size < transfer.block_size && size <= longest_trailer ? size : 0;
}

}  // namespace plendix
