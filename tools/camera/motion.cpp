#include "camera/motion.h"

#include <algorithm>
#include <cstdlib>

namespace plendix::camera {

namespace {

constexpr int zones = 8, cells_per_zone = Thumbnail::side / zones;

/// Every other row and column is enough: the scenes have no finer detail that moves.
std::uint8_t mean(const Picture& picture, const Area& cell) {
    unsigned long sum = 0, count = 0;
    for (int y = cell.y0; y < cell.y1; y += 2) {
        const std::uint8_t* row = picture.plane[0] + static_cast<std::ptrdiff_t>(y) * picture.stride[0];
        for (int x = cell.x0; x < cell.x1; x += 2, ++count)
            sum += row[x];
    }
    return static_cast<std::uint8_t>(count == 0 ? 0 : sum / count);
}

}  // namespace

Thumbnail make_thumbnail(const Picture& picture, const Area& area, bool half, int zone_edge) {
    Thumbnail thumbnail{area, half, zone_edge, {}};
    const Size size = scaled(area, half);
    const int edge = zone_edge / cells_per_zone / (half ? 2 : 1);  // a multiple of 4 pixels
    if (edge == 0) return thumbnail;
    for (int row = 0; row < Thumbnail::side && row * edge < size.height; ++row)
        for (int column = 0; column < Thumbnail::side && column * edge < size.width; ++column) {
            const Area cell{column * edge, row * edge, std::min((column + 1) * edge, size.width),
                            std::min((row + 1) * edge, size.height)};
            thumbnail.cells[static_cast<std::size_t>(row * Thumbnail::side + column)] = mean(picture, cell);
        }
    return thumbnail;
}

Activity compare(const Thumbnail& before, const Thumbnail& now, const MotionSettings& settings) {
    Activity activity{};
    const bool comparable =
        before.area == now.area && before.half == now.half && before.zone_edge == now.zone_edge;
    if (!settings.enabled || !comparable) return activity;
    for (int i = 0; i < Thumbnail::side * Thumbnail::side; ++i) {
        const auto cell = static_cast<std::size_t>(i);
        const int change = std::abs(before.cells[cell] - now.cells[cell]);
        const int row = i / Thumbnail::side / cells_per_zone, column = i % Thumbnail::side / cells_per_zone;
        auto& zone = activity[static_cast<std::size_t>(row * zones + column)];
        if (change > settings.threshold) zone = std::max(zone, static_cast<std::uint8_t>(change));
    }
    return activity;
}

}  // namespace plendix::camera
