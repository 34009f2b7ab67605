// Pictures as the encoders take them, and drawing into them in sensor coordinates.
#pragma once

#include <array>
#include <cstdint>

#include "camera/wire/request_name.h"

namespace plendix::camera {

/// A view of Y, Cb and Cr planes that somebody else owns. Chroma has half the columns; 4:2:0
/// has half the rows too, 4:2:2 all of them. Levels are those of ITU-R BT.601, 16 to 235, or with
/// `full_range` those of JPEG files, 0 to 255.
struct Picture {
    std::array<std::uint8_t*, 3> plane{};
    std::array<int, 3> stride{};  // bytes
    int width = 0, height = 0;    // luma pixels
    bool half_chroma_rows = false;
    bool full_range = false;
};

/// Levels 16 to 235, chroma 16 to 240.
struct Colour {
    std::uint8_t y, cb, cr;
};

/// Draws the part of the sensor that begins at `area` into a picture, at full or half size.
class Canvas {
public:
    Canvas(const Picture& picture, const Area& area, bool half)
        : picture_(picture), area_(area), scale_(half ? 2 : 1) {}

    /// Fills a rectangle given in sensor pixels, right and bottom exclusive.
    void fill(const Area& rectangle, const Colour& colour);

private:
    void fill_plane(int plane, const Area& pixels, std::uint8_t value);

    const Picture& picture_;
    Area area_;
    int scale_;
};

/// Size of the picture of an area, in pixels.
struct Size {
    int width, height;
};
inline Size scaled(const Area& area, bool half) {
    return half ? Size{area.width() / 2, area.height() / 2} : Size{area.width(), area.height()};
}

}  // namespace plendix::camera
