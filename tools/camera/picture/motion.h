// Motion activity: what changed between two pictures of a stream, zone by zone. Zones are counted
// from the top left corner of the pictured area; 8 by 8 of them are reported, the rest is not
// watched. Each zone is split into 4 by 4 cells, and its activity is the greatest change of a
// cell's mean brightness.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "camera/picture/picture.h"

namespace plendix::camera {

/// Set by registers 109 to 111.
struct MotionSettings {
    bool enabled = false;
    int zone_edge = 0;  // sensor pixels; 0 reports no motion
    int threshold = 0;  // activity up to here is none, in steps of 8-bit brightness
};

/// The mean brightness of every square of 8 by 8 sensor pixels of an area: the finest grid that
/// any zone edge can ask for, so pictures need not be kept for it.
struct Brightness {
    static constexpr int square = 8;
    Area area;
    bool half = false;
    int columns = 0, rows = 0;
    std::vector<std::uint8_t> squares{};
};

/// The mean brightness of every cell of a picture. Pictures of another geometry do not compare.
struct Thumbnail {
    static constexpr int side = 32;  // 8 zones of 4 cells
    Area area;
    bool half = false;
    int zone_edge = 0;
    std::array<std::uint8_t, std::size_t{side} * side> cells{};
};

using Activity = std::array<std::uint8_t, 64>;  // 8 rows of 8 zones; 0 is no motion

Brightness measure(const Picture& picture, const Area& area, bool half);
Thumbnail make_thumbnail(const Brightness& brightness, int zone_edge);
Activity compare(const Thumbnail& before, const Thumbnail& now, const MotionSettings& settings);

}  // namespace plendix::camera
