// What a camera sends for a picture, and the file that is made of it. Pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "link/file_name.h"
#include "link/packet.h"

namespace plendix::link {

constexpr std::size_t trailer_size = 90;  // bytes at least; 93 at least where the picture is H.264
constexpr std::size_t h264_trailer_size = 93;

/// The short block behind a picture.
struct Trailer {
    std::array<std::uint8_t, 6> mac{};
    std::array<std::uint8_t, 64> activity{};  // 8 rows of 8 zones from the top left; not 0 is motion
    bool full = false;                        // the area in as many pixels; otherwise half of each side
    std::uint8_t quality = 0;                 // JPEG
    Area area;
    bool h264 = false;
    bool key = false;  // a decoder can begin with it, as with every JPEG picture
    int width() const { return area.width() / (full ? 1 : 2); }
    int height() const { return area.height() / (full ? 1 : 2); }
};

/// Nothing for a block that is too short.
std::optional<Trailer> parse_trailer(View block);

/// Why no decoder would take the picture; empty when one may. The driver withholds these.
std::string trailer_complaint(const Trailer& trailer);

/// A JPEG file, or an H.264 byte stream of one access unit without a delimiter, as the driver makes
/// them. `payload` is all blocks in front of the trailer: two filler bytes or a slice without its first
/// byte, then the picture, then zeros. Requires a trailer without a complaint.
Bytes make_picture(View payload, const Trailer& trailer);

}  // namespace plendix::link
