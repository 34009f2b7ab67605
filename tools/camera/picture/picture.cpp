#include "camera/picture/picture.h"

#include <algorithm>
#include <cstring>

namespace plendix::camera {

namespace {

/// A level that is `zero` at rest and spans `range` steps, stretched to the 255 of JPEG files.
std::uint8_t stretched(int level, int zero, int range, int full_zero) {
    const int scaled = (level - zero) * 255 * 2 / range;  // in halves, to round
    return static_cast<std::uint8_t>(std::clamp((scaled + (scaled < 0 ? -1 : 1)) / 2 + full_zero, 0, 255));
}

Colour full_range(const Colour& colour) {
    return {stretched(colour.y, 16, 219, 0), stretched(colour.cb, 128, 224, 128),
            stretched(colour.cr, 128, 224, 128)};
}

}  // namespace

void Canvas::fill(const Area& rectangle, const Colour& colour) {
    const auto x = [this](int at) { return std::clamp((at - area_.x0) / scale_, 0, picture_.width); };
    const auto y = [this](int at) { return std::clamp((at - area_.y0) / scale_, 0, picture_.height); };
    const Area luma{x(rectangle.x0), y(rectangle.y0), x(rectangle.x1), y(rectangle.y1)};
    if (luma.width() <= 0 || luma.height() <= 0) return;
    const Colour levels = picture_.full_range ? full_range(colour) : colour;
    fill_plane(0, luma, levels.y);

    Area chroma{luma.x0 / 2, luma.y0, (luma.x1 + 1) / 2, luma.y1};
    if (picture_.half_chroma_rows) {
        chroma.y0 = luma.y0 / 2;
        chroma.y1 = (luma.y1 + 1) / 2;
    }
    fill_plane(1, chroma, levels.cb);
    fill_plane(2, chroma, levels.cr);
}

void Canvas::fill_plane(int plane, const Area& pixels, std::uint8_t value) {
    const auto index = static_cast<std::size_t>(plane);
    const std::ptrdiff_t stride = picture_.stride[index];
    std::uint8_t* row = picture_.plane[index] + pixels.y0 * stride + pixels.x0;
    for (int y = pixels.y0; y < pixels.y1; ++y, row += stride)
        std::memset(row, value, static_cast<std::size_t>(pixels.width()));
}

}  // namespace plendix::camera
