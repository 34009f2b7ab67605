#include "decode/jpeg_scan.h"

#include <array>
#include <cstdio>

namespace plendix {
namespace {

constexpr std::size_t filler = 2;  // bytes in front of the scan
constexpr int stuffing = 0x00, first_restart = 0xD0, last_restart = 0xD7, end_of_image = 0xD9, fill = 0xFF;
constexpr int mcu_width = 16, mcu_height = 8, interval = 16;  // MCUs

std::string marker_text(int marker) {
    std::array<char, 6> text{};
    std::snprintf(text.data(), text.size(), "FF %02X", static_cast<unsigned>(marker) & 0xFFU);
    return text.data();
}

}  // namespace

JpegScan scan_jpeg(link::View payload) {
    JpegScan scan;
    for (std::size_t at = filler; at + 1 < payload.size; ++at) {
        if (payload.data[at] != fill) continue;
        const int marker = payload.data[at + 1];
        if (marker == fill) continue;
        ++at;
        if (marker == stuffing) continue;
        if (marker >= first_restart && marker <= last_restart) {
            scan.restarts.push_back(marker - first_restart);
        } else if (marker == end_of_image) {
            scan.end = at + 1;
            return scan;
        } else if (scan.strange < 0) {
            scan.strange = marker;
        }
    }
    return scan;
}

std::string restart_complaint(const JpegScan& scan, int width, int height) {
    if (scan.strange >= 0) return "the marker " + marker_text(scan.strange) + " in the scan";
    for (std::size_t i = 0; i < scan.restarts.size(); ++i)
        if (scan.restarts[i] != static_cast<int>(i % 8))
            return "restart marker " + std::to_string(i + 1) + " is " +
                   marker_text(first_restart + scan.restarts[i]);
    const long mcus = long{(width + mcu_width - 1) / mcu_width} * ((height + mcu_height - 1) / mcu_height);
    const long wanted = (mcus + interval - 1) / interval - 1;
    if (static_cast<long>(scan.restarts.size()) == wanted) return {};
    return std::to_string(scan.restarts.size()) + " restart markers, not " + std::to_string(wanted) + " in " +
           std::to_string(width) + 'x' + std::to_string(height);
}

}  // namespace plendix
