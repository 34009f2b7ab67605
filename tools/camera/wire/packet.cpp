#include "camera/wire/packet.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

namespace plendix::camera {

namespace {

enum Opcode : std::uint16_t { op_read = 1, op_write = 2, op_data = 3, op_ack = 4, op_error = 5, op_oack = 6 };

constexpr std::size_t least_block_size = 8, greatest_block_size = 65464;  // RFC 2348

unsigned word(const std::uint8_t* at) {
    return static_cast<unsigned>(at[0] << 8 | at[1]);
}

void append_word(Bytes& packet, unsigned value) {
    packet.push_back(static_cast<std::uint8_t>(value >> 8));
    packet.push_back(static_cast<std::uint8_t>(value));
}

void append_string(Bytes& packet, const std::string& text) {
    packet.insert(packet.end(), text.begin(), text.end());
    packet.push_back(0);
}

bool same_word(const std::string& a, const char* b) {
    return strcasecmp(a.c_str(), b) == 0;
}

/// The zero-terminated strings of a packet; an unterminated one at the end is malformed.
class Strings {
public:
    Strings(const std::uint8_t* begin, const std::uint8_t* end) : at_(begin), end_(end) {}
    bool more() const { return at_ != end_; }

    std::string next() {
        const auto* zero = std::find(at_, end_, std::uint8_t{0});
        if (zero == end_) throw Refused(ErrorCode::illegal, "malformed request: string without end");
        std::string text(at_, zero);
        at_ = zero + 1;
        return text;
    }

private:
    const std::uint8_t* at_;
    const std::uint8_t* end_;
};

std::size_t parse_block_size(const std::string& value) {
    std::size_t size = 0;
    const bool digits = !value.empty() && value.size() <= 5 &&
                        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits) size = std::stoul(value);
    if (size < least_block_size || size > greatest_block_size)
        throw Refused(ErrorCode::option, "blksize " + value + " is not between 8 and 65464");
    return size;
}

}  // namespace

ReadRequest parse_request(const std::uint8_t* data, std::size_t size) {
    if (size < 2) throw Refused(ErrorCode::illegal, "malformed request");
    if (word(data) == op_write) throw Refused(ErrorCode::access, "nothing can be written here");
    if (word(data) != op_read) throw Refused(ErrorCode::illegal, "only read requests are served");

    Strings strings(data + 2, data + size);
    ReadRequest request;
    request.name = strings.next();
    const std::string mode = strings.next();
    if (!same_word(mode, "netascii") && !same_word(mode, "octet"))
        throw Refused(ErrorCode::illegal, "mode " + mode + " is neither netascii nor octet");
    while (strings.more()) {
        const std::string option = strings.next();
        const std::string value = strings.next();
        if (same_word(option, "blksize")) request.block_size = parse_block_size(value);
    }
    return request;
}

std::optional<std::uint16_t> parse_acknowledgement(const std::uint8_t* data, std::size_t size) {
    if (size < 4 || word(data) != op_ack) return std::nullopt;
    return static_cast<std::uint16_t>(word(data + 2));
}

bool is_error(const std::uint8_t* data, std::size_t size) {
    return size >= 4 && word(data) == op_error;
}

Bytes option_acknowledgement(std::size_t block_size) {
    Bytes packet;
    append_word(packet, op_oack);
    append_string(packet, "blksize");
    append_string(packet, std::to_string(block_size));
    return packet;
}

Bytes error_packet(ErrorCode code, const std::string& text) {
    constexpr std::size_t longest = 200;  // the text may quote what the client sent
    std::string printable = text.substr(0, longest);
    for (char& c : printable)
        if (!std::isprint(static_cast<unsigned char>(c))) c = '?';
    Bytes packet;
    append_word(packet, op_error);
    append_word(packet, static_cast<unsigned>(code));
    append_string(packet, printable);
    return packet;
}

Bytes data_header(std::uint16_t block, std::size_t capacity) {
    Bytes packet;
    packet.reserve(4 + capacity);
    append_word(packet, op_data);
    append_word(packet, block);
    return packet;
}

}  // namespace plendix::camera
