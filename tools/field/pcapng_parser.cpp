// pcapng: blocks of a type, a length, a body and the length again; a section begins with the block
// that tells its byte order. Timestamps count units that the interface's description tells.
#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "field/capture_parser.h"

namespace plendix {
namespace {

enum BlockType : std::uint32_t {
    section_block = 0x0A0D0D0A,  // the same in either byte order
    interface_block = 1,
    obsolete_packet_block = 2,
    simple_packet_block = 3,
    statistics_block = 5,
    enhanced_packet_block = 6
};
constexpr std::uint32_t order_magic = 0x1A2B3C4D;
constexpr std::size_t block_frame = 12;  // type and both lengths
constexpr std::size_t section_least = 28;
constexpr std::size_t most_interfaces = 65536;
constexpr std::uint16_t comment_option = 1, drops_option = 5, resolution_option = 9, offset_option = 14;
constexpr std::uint64_t second_ns = 1'000'000'000;

/// 10^exponent, up to 19.
std::uint64_t power_of_ten(unsigned exponent) {
    std::uint64_t power = 1;
    for (; exponent > 0; --exponent)
        power *= 10;
    return power;
}

struct Interface {
    int link_type = 0;
    std::uint32_t snapshot = 0;   // 0: no limit
    std::uint8_t resolution = 6;  // negative power of ten or, with bit 7, of two
    std::int64_t offset_s = 0;
    std::uint64_t missed = 0;
};

struct Moment {
    std::uint64_t seconds = 0, nanoseconds = 0;
};

Moment binary_moment(std::uint64_t count, unsigned shift) {
    if (shift == 0) return {count, 0};
    Moment moment{shift < 64 ? count >> shift : 0, 0};
    std::uint64_t fraction = shift < 64 ? count & ((std::uint64_t{1} << shift) - 1) : count;
    if (shift > 32) {  // a quarter of a nanosecond is fine enough
        fraction = shift - 32 < 64 ? fraction >> (shift - 32) : 0;
        shift = 32;
    }
    moment.nanoseconds = fraction * second_ns >> shift;
    return moment;
}

Moment decimal_moment(std::uint64_t count, unsigned digits) {
    if (digits <= 9) {
        const std::uint64_t units = power_of_ten(digits);
        return {count / units, count % units * power_of_ten(9 - digits)};
    }
    if (digits - 9 > 19) return {};
    const std::uint64_t nanoseconds = count / power_of_ten(digits - 9);
    return {nanoseconds / second_ns, nanoseconds % second_ns};
}

/// Times beyond what nanoseconds since 1970 can tell are the last or first that they can.
std::int64_t time_of(const Interface& interface, std::uint64_t count) {
    static constexpr std::int64_t most_seconds = std::numeric_limits<std::int64_t>::max() / 1'000'000'000 - 1;
    const unsigned digits = interface.resolution & 0x7FU;
    const Moment moment =
        (interface.resolution & 0x80U) != 0 ? binary_moment(count, digits) : decimal_moment(count, digits);
    const auto limited = [](std::int64_t value) {
        return std::max(-most_seconds, std::min<std::int64_t>(value, most_seconds));
    };
    const auto counted = static_cast<std::int64_t>(std::min<std::uint64_t>(moment.seconds, most_seconds));
    const std::int64_t seconds = limited(counted + limited(interface.offset_s));
    return seconds * static_cast<std::int64_t>(second_ns) + static_cast<std::int64_t>(moment.nanoseconds);
}

/// A part of a block's body; reading beyond it fails.
struct Part {
    const std::uint8_t* at = nullptr;
    std::size_t size = 0;

    bool skip(std::size_t count) {
        if (count > size) return false;
        at += count;
        size -= count;
        return true;
    }
};

constexpr std::size_t padded(std::size_t size) {
    return (size + 3) / 4 * 4;
}

class PcapngParser : public CaptureParser {
public:
    explicit PcapngParser(CaptureInput input) : CaptureParser(std::move(input)) {
        read_section();  // its type has told the format, and is read already
    }
    bool next(CapturedPacket& packet) override;

private:
    bool read_block();
    bool read_body(std::uint32_t size, std::uint32_t had);
    bool read_section();
    bool take_interface();
    bool take_statistics();
    bool take_timed(CapturedPacket& packet);
    bool take_simple(CapturedPacket& packet);
    bool take_data(CapturedPacket& packet, Part part, std::size_t captured, std::uint64_t original);
    bool damaged(const std::string& what) { return end_damaged(block_position_, what); }
    const Interface* interface(std::uint32_t number);
    /// Calls `take(code, value)` for each option.
    template <class Take>
    bool options(Part part, Take take);
    Part body() const { return {body_.data(), body_.size()}; }

    ByteOrder order_;
    std::vector<Interface> interfaces_;  // of this section
    std::uint64_t block_position_ = 0, body_position_ = 0;
    std::uint32_t type_ = 0;
    Bytes body_;
};

/// A section's own length counts in the byte order that its body tells.
bool PcapngParser::read_section() {
    std::uint8_t head[8];
    if (!input_.read(head, sizeof head)) return end_short();
    order_.big = false;
    if (order_.number(head + 4) != order_magic) order_.big = true;
    if (order_.number(head + 4) != order_magic) return damaged("a section without byte order");
    const std::uint32_t size = order_.number(head);
    if (size < section_least) return damaged("a section header of " + std::to_string(size) + " bytes");
    if (!read_body(size, 4)) return false;
    if (order_.word(body_.data()) != 1)
        return damaged("version " + std::to_string(order_.word(body_.data())) +
                       " of the format, which is not known");
    interfaces_.clear();
    return true;
}

/// `size` is the whole block's; so much of the body was had before.
bool PcapngParser::read_body(std::uint32_t size, std::uint32_t had) {
    if (size % 4 != 0 || size < block_frame + had || size > largest_capture_block)
        return damaged("a block of " + std::to_string(size) + " bytes");
    body_position_ = input_.position();
    if (!input_.read(body_, size - block_frame - had)) return end_short();
    std::uint8_t again[4];
    if (!input_.read(again, sizeof again)) return end_short();
    if (order_.number(again) != size)
        return damaged("a block of " + std::to_string(size) + " or " + std::to_string(order_.number(again)) +
                       " bytes");
    return true;
}

bool PcapngParser::read_block() {
    block_position_ = input_.position();
    std::uint8_t head[4];
    if (!input_.read(head, sizeof head)) return input_.got() > 0 && end_short();
    type_ = order_.number(head);
    if (type_ == section_block) return read_section();
    if (!input_.read(head, sizeof head)) return end_short();
    return read_body(order_.number(head), 0);
}

template <class Take>
bool PcapngParser::options(Part part, Take take) {
    while (part.size >= 4) {
        const std::uint16_t code = order_.word(part.at), size = order_.word(part.at + 2);
        part.skip(4);
        if (code == 0) return true;
        if (size > part.size) return damaged("an option of " + std::to_string(size) + " bytes");
        take(code, Part{part.at, size});
        part.skip(std::min(padded(size), part.size));
    }
    return true;
}

bool PcapngParser::take_interface() {
    Part part = body();
    if (part.size < 8) return damaged("an interface of " + std::to_string(part.size) + " bytes");
    if (interfaces_.size() == most_interfaces) return damaged("more than 65536 interfaces");
    Interface added;
    added.link_type = order_.word(part.at);
    added.snapshot = order_.number(part.at + 4);
    part.skip(8);
    const bool good = options(part, [&](std::uint16_t code, Part value) {
        if (code == resolution_option && value.size >= 1) added.resolution = value.at[0];
        if (code == offset_option && value.size >= 8)
            added.offset_s = static_cast<std::int64_t>(order_.wide(value.at));
    });
    interfaces_.push_back(added);
    return good;
}

/// Each tells of the time since the capture began: the last of an interface counts. A file may hold as many
/// as it likes, of as many interfaces: so they are not summed up for each.
bool PcapngParser::take_statistics() {
    Part part = body();
    if (part.size < 12) return damaged("statistics of " + std::to_string(part.size) + " bytes");
    const std::uint32_t number = order_.number(part.at);
    if (interface(number) == nullptr) return false;
    part.skip(12);
    return options(part, [&](std::uint16_t code, Part value) {
        if (code != drops_option || value.size < 8) return;
        const std::uint64_t missed = order_.wide(value.at);
        missed_ = missed_.value_or(0) + missed - std::exchange(interfaces_[number].missed, missed);
    });
}

const Interface* PcapngParser::interface(std::uint32_t number) {
    if (number < interfaces_.size()) return &interfaces_[number];
    damaged("interface " + std::to_string(number) + " of " + std::to_string(interfaces_.size()));
    return nullptr;
}

/// The packet's bytes, then options, if there are any.
bool PcapngParser::take_data(CapturedPacket& packet, Part part, std::size_t captured,
                             std::uint64_t original) {
    if (captured > largest_captured_packet || captured > part.size)
        return damaged("a packet of " + std::to_string(captured) + " bytes in a block of " +
                       std::to_string(body_.size() + block_frame));
    packet.data.assign(part.at, part.at + captured);
    packet.position = body_position_ + static_cast<std::uint64_t>(part.at - body_.data());
    packet.original_size = static_cast<std::size_t>(original);
    packet.comment.clear();
    part.skip(std::min(padded(captured), part.size));
    return options(part, [&](std::uint16_t code, Part value) {
        if (code != comment_option) return;
        if (!packet.comment.empty()) packet.comment += '\n';
        packet.comment.append(value.at, value.at + value.size);
    });
}

/// Enhanced and obsolete blocks differ in how wide the interface's number is.
bool PcapngParser::take_timed(CapturedPacket& packet) {
    Part part = body();
    if (part.size < 20) return damaged("a packet block of " + std::to_string(part.size) + " bytes");
    const Interface* const on =
        interface(type_ == obsolete_packet_block ? order_.word(part.at) : order_.number(part.at));
    if (on == nullptr) return false;
    const std::uint64_t high = order_.number(part.at + 4), low = order_.number(part.at + 8);
    const std::uint32_t captured = order_.number(part.at + 12), original = order_.number(part.at + 16);
    part.skip(20);
    packet.time_ns = time_of(*on, high << 32U | low);
    packet.link_type = on->link_type;
    return take_data(packet, part, captured, original);
}

/// Without a time, and cut where the first interface cuts.
bool PcapngParser::take_simple(CapturedPacket& packet) {
    Part part = body();
    if (part.size < 4) return damaged("a packet block of " + std::to_string(part.size) + " bytes");
    const Interface* const on = interface(0);
    if (on == nullptr) return false;
    const std::uint32_t original = order_.number(part.at);
    part.skip(4);
    const std::uint32_t captured = on->snapshot == 0 ? original : std::min(original, on->snapshot);
    packet.time_ns = 0;
    packet.link_type = on->link_type;
    part.size = std::min<std::size_t>(part.size, captured);
    return take_data(packet, part, captured, original);
}

bool PcapngParser::next(CapturedPacket& packet) {
    while (!ended() && read_block()) {
        switch (type_) {
            case enhanced_packet_block:
            case obsolete_packet_block:
                return take_timed(packet);
            case simple_packet_block:
                return take_simple(packet);
            case interface_block:
                take_interface();
                break;
            case statistics_block:
                take_statistics();
                break;
            default:
                break;
        }
    }
    return false;
}

}  // namespace

std::unique_ptr<CaptureParser> pcapng_parser(CaptureInput& input, const CaptureMagic& magic) {
    if (ByteOrder{}.number(magic.data()) != section_block) return nullptr;
    return std::make_unique<PcapngParser>(std::move(input));
}

}  // namespace plendix
