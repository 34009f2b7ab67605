#include "link/exchange.h"

#include <algorithm>

namespace plendix::link {
namespace {

constexpr std::size_t refused_block_size = 512;  // stands for "no acknowledgement came"

}  // namespace

Exchange::Exchange(const std::string& name, std::size_t most_bytes, Trust trust)
    : request_(read_request(name)), most_bytes_(most_bytes), trust_(trust) {}

Bytes Exchange::take(View datagram, std::uint16_t port) {
    if (complete_ || broken_ || (granted() && port != port_)) return {};
    const auto packet = parse_packet(datagram);
    const Opcode opcode = packet ? packet->opcode : Opcode::read_request;
    if (opcode == Opcode::options) return take_options(*packet, port);
    if (opcode == Opcode::data && (granted() || trust_ == Trust::camera)) return take_data(*packet);
    if (opcode == Opcode::data) return stop(Oddity::no_options, packet->rest);
    if (opcode == Opcode::error) {
        stop(Oddity::error, packet->rest);
        return {};
    }
    const bool echo =
        std::equal(request_.begin(), request_.end(), datagram.data, datagram.data + datagram.size);
    if (trust_ == Trust::stranger && !granted()) note(echo ? Oddity::echo : Oddity::meaningless, datagram);
    return {};
}

Bytes Exchange::take_options(const Packet& packet, std::uint16_t port) {
    if (granted()) return acknowledgement(0);  // ours was lost
    const std::size_t size = granted_block_size(packet).value_or(0);
    if (size == 0 || size == refused_block_size) return stop(Oddity::block_size, packet.rest);
    block_size_ = size;
    port_ = port;
    return acknowledgement(0);
}

Bytes Exchange::take_data(const Packet& packet) {
    if (!granted()) return {};
    const View& block = packet.rest;
    ++blocks_;
    bytes_ += block.size;
    if (block.size < block_size_) {
        last_.assign(block.data, block.data + block.size);
        complete_ = true;
    } else if (bytes_ > most_bytes_) {
        return stop(Oddity::too_long, block);
    }
    return acknowledgement(packet.number);
}

void Exchange::note(Oddity kind, View what) {
    if (odd_.kind != Oddity::none && !broken_) return;  // the first one is told
    odd_.kind = kind;
    odd_.size = what.size;
    odd_.first.assign(what.data, what.data + std::min(what.size, OddAnswer::most_shown));
}

Bytes Exchange::stop(Oddity kind, View what) {
    broken_ = true;
    note(kind, what);
    return farewell("no camera's answer");
}

}  // namespace plendix::link
