// pcap: a header of 24 bytes, then packets with headers of 16. The magic number tells the byte order
// and the unit of the fraction of a second.
#include <utility>

#include "field/capture_parser.h"

namespace plendix {
namespace {

constexpr std::size_t header_rest = 20, packet_header = 16;
constexpr std::uint32_t micro_magic = 0xA1B2C3D4, nano_magic = 0xA1B23C4D;
constexpr std::uint32_t link_mask = 0xFFFF;  // what is above tells of frame checks
constexpr std::uint32_t raw_ip_links[] = {12, 14};

class PcapParser : public CaptureParser {
public:
    PcapParser(CaptureInput input, ByteOrder order, bool nano)
        : CaptureParser(std::move(input)), order_(order), unit_ns_(nano ? 1 : 1000) {
        std::uint8_t rest[header_rest];
        if (!input_.read(rest, sizeof rest)) {
            end_short();
            return;
        }
        link_ = static_cast<int>(order_.number(rest + 16) & link_mask);
        for (const std::uint32_t raw : raw_ip_links)  // as systems without the common numbers write it
            if (link_ == static_cast<int>(raw)) link_ = link_raw_ip;
    }

    bool next(CapturedPacket& packet) override {
        if (ended()) return false;
        const std::uint64_t position = input_.position();
        std::uint8_t header[packet_header];
        if (!input_.read(header, sizeof header)) return input_.got() > 0 && end_short();
        const std::uint32_t size = order_.number(header + 8);
        if (size > largest_captured_packet)
            return end_damaged(position, "a packet of " + std::to_string(size) + " bytes");
        packet.position = input_.position();
        if (!input_.read(packet.data, size)) return end_short();
        packet.time_ns = std::int64_t{order_.number(header)} * 1'000'000'000 +
                         std::int64_t{order_.number(header + 4)} * unit_ns_;
        packet.link_type = link_;
        packet.original_size = order_.number(header + 12);
        packet.comment.clear();
        return true;
    }

private:
    ByteOrder order_;
    std::int64_t unit_ns_;
    int link_ = 0;
};

}  // namespace

std::unique_ptr<CaptureParser> pcap_parser(CaptureInput& input, const CaptureMagic& magic) {
    for (const bool big : {false, true}) {
        const std::uint32_t number = ByteOrder{big}.number(magic.data());
        if (number == micro_magic || number == nano_magic)
            return std::make_unique<PcapParser>(std::move(input), ByteOrder{big}, number == nano_magic);
    }
    return nullptr;
}

}  // namespace plendix
