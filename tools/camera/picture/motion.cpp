#include "camera/picture/motion.h"

#include <algorithm>
#include <cstdlib>

namespace plendix::camera {

namespace {

constexpr int zones = 8, cells_per_zone = Thumbnail::side / zones;

std::size_t index(int row, int columns, int column) {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
           static_cast<std::size_t>(column);
}

/// Every other row and column is enough: the scenes have no finer detail that moves.
std::uint8_t mean(const Picture& picture, const Area& square) {
    unsigned long sum = 0, count = 0;
    for (int y = square.y0; y < square.y1; y += 2) {
        const std::uint8_t* row = picture.plane[0] + static_cast<std::ptrdiff_t>(y) * picture.stride[0];
        for (int x = square.x0; x < square.x1; x += 2, ++count)
            sum += row[x];
    }
    return static_cast<std::uint8_t>(count == 0 ? 0 : sum / count);
}

std::uint8_t mean(const Brightness& brightness, const Area& cell) {
    unsigned long sum = 0, count = 0;
    for (int y = cell.y0; y < std::min(cell.y1, brightness.rows); ++y)
        for (int x = cell.x0; x < std::min(cell.x1, brightness.columns); ++x, ++count)
            sum += brightness.squares[index(y, brightness.columns, x)];
    return static_cast<std::uint8_t>(count == 0 ? 0 : sum / count);
}

}  // namespace

Brightness measure(const Picture& picture, const Area& area, bool half) {
    const Size size = scaled(area, half);
    const int edge = Brightness::square / (half ? 2 : 1);  // picture pixels
    Brightness brightness{area, half, (size.width + edge - 1) / edge, (size.height + edge - 1) / edge};
    brightness.squares.reserve(index(brightness.rows, brightness.columns, 0));
    for (int y = 0; y < size.height; y += edge)
        for (int x = 0; x < size.width; x += edge)
            brightness.squares.push_back(
                mean(picture, {x, y, std::min(x + edge, size.width), std::min(y + edge, size.height)}));
    return brightness;
}

Thumbnail make_thumbnail(const Brightness& brightness, int zone_edge) {
    Thumbnail thumbnail{brightness.area, brightness.half, zone_edge, {}};
    const int edge = zone_edge / cells_per_zone / Brightness::square;  // squares: edges are multiples of 32
    if (edge == 0) return thumbnail;
    for (int row = 0; row < Thumbnail::side && row * edge < brightness.rows; ++row)
        for (int column = 0; column < Thumbnail::side && column * edge < brightness.columns; ++column) {
            const Area cell{column * edge, row * edge, (column + 1) * edge, (row + 1) * edge};
            thumbnail.cells[index(row, Thumbnail::side, column)] = mean(brightness, cell);
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
        auto& zone = activity[index(row, zones, column)];
        if (change > settings.threshold) zone = std::max(zone, static_cast<std::uint8_t>(change));
    }
    return activity;
}

}  // namespace plendix::camera
