#include "link/packet.h"

#include <algorithm>

namespace plendix::link {
namespace {

constexpr std::size_t least_block_size = 8;  // RFC 2348
constexpr std::size_t most_block_size = 65464;
constexpr std::size_t most_digits = 5;

std::uint16_t word_at(View view, std::size_t at) {
    return static_cast<std::uint16_t>(view.data[at] << 8 | view.data[at + 1]);
}

void put_word(Bytes& packet, std::uint16_t word) {
    packet.push_back(static_cast<std::uint8_t>(word >> 8));
    packet.push_back(static_cast<std::uint8_t>(word & 0xFFU));
}

void put_text(Bytes& packet, const std::string& text) {
    packet.insert(packet.end(), text.begin(), text.end());
    packet.push_back(0);
}

/// Takes the text up to the next zero off the front. Nothing where there is none.
std::optional<std::string> take_text(View& rest) {
    const std::uint8_t* const end = rest.data + rest.size;
    const std::uint8_t* const zero = std::find(rest.data, end, std::uint8_t{0});
    if (zero == end) return std::nullopt;
    std::string text(rest.data, zero);
    rest = {zero + 1, static_cast<std::size_t>(end - zero) - 1};
    return text;
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Names and values to the end; what is not ended is left out.
std::vector<std::pair<std::string, std::string>> take_options(View rest) {
    std::vector<std::pair<std::string, std::string>> options;
    for (;;) {
        auto name = take_text(rest);
        auto value = name ? take_text(rest) : std::nullopt;
        if (!value) return options;
        std::transform(name->begin(), name->end(), name->begin(), lower);
        options.emplace_back(std::move(*name), std::move(*value));
    }
}

}  // namespace

std::optional<Packet> parse_packet(View datagram) {
    if (datagram.size < 2) return std::nullopt;
    Packet packet;
    const std::uint16_t opcode = word_at(datagram, 0);
    if (opcode < 1 || opcode > 6) return std::nullopt;
    packet.opcode = static_cast<Opcode>(opcode);
    std::size_t head = 2;
    if (packet.opcode == Opcode::data || packet.opcode == Opcode::acknowledgement ||
        packet.opcode == Opcode::error) {
        head = 4;
        if (datagram.size < head) return std::nullopt;
        packet.number = word_at(datagram, 2);
    }
    packet.rest = {datagram.data + head, datagram.size - head};
    return packet;
}

std::optional<ReadRequest> parse_request(const Packet& packet) {
    if (packet.opcode != Opcode::read_request) return std::nullopt;
    View rest = packet.rest;
    auto name = take_text(rest);
    auto mode = name ? take_text(rest) : std::nullopt;
    if (!mode) return std::nullopt;
    return ReadRequest{std::move(*name), std::move(*mode), take_options(rest)};
}

std::optional<std::size_t> granted_block_size(const Packet& packet) {
    if (packet.opcode != Opcode::options) return std::nullopt;
    for (const auto& [name, value] : take_options(packet.rest)) {
        if (name != "blksize") continue;
        const bool digits =
            !value.empty() && value.size() <= most_digits &&
            std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
        const std::size_t size = digits ? std::stoul(value) : 0;
        if (size >= least_block_size && size <= most_block_size) return size;
    }
    return std::nullopt;
}

std::string error_words(const Packet& packet) {
    const std::uint8_t* const end = packet.rest.data + packet.rest.size;
    return {packet.rest.data, std::find(packet.rest.data, end, std::uint8_t{0})};
}

Bytes read_request(const std::string& name, std::size_t block_size) {
    Bytes packet;
    put_word(packet, static_cast<std::uint16_t>(Opcode::read_request));
    put_text(packet, name);
    put_text(packet, "netascii");
    if (block_size == 0) return packet;
    put_text(packet, "blksize");
    put_text(packet, std::to_string(block_size));
    return packet;
}

Bytes acknowledgement(std::uint16_t block) {
    Bytes packet;
    put_word(packet, static_cast<std::uint16_t>(Opcode::acknowledgement));
    put_word(packet, block);
    return packet;
}

Bytes farewell(const std::string& words) {
    Bytes packet;
    put_word(packet, static_cast<std::uint16_t>(Opcode::error));
    put_word(packet, 0);
    put_text(packet, words);
    return packet;
}

}  // namespace plendix::link
