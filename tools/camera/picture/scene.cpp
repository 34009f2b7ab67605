#include "camera/picture/scene.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace plendix::camera {

namespace {

constexpr Colour white{235, 128, 128}, ink{24, 132, 124}, ball{160, 60, 200}, ball_edge{90, 80, 190};

// 75 % colour bars of ITU-R BT.801.
constexpr std::array<Colour, 8> bars{{{180, 128, 128},
                                      {162, 44, 142},
                                      {131, 156, 44},
                                      {112, 72, 58},
                                      {84, 184, 198},
                                      {65, 100, 212},
                                      {35, 212, 114},
                                      {16, 128, 128}}};

// Segments of a digit: bit 0 top, 1 top right, 2 bottom right, 3 bottom, 4 bottom left,
// 5 top left, 6 middle.
constexpr std::array<unsigned, 10> segments{0x3F, 0x06, 0x5B, 0x4F, 0x66, 0x6D, 0x7D, 0x07, 0x7F, 0x6F};

/// A digit cell of the given height, in sensor pixels; ':' and '.' take half a cell.
struct Cell {
    explicit Cell(int cell_height) : height(cell_height) {}
    int height;
    int stroke() const { return std::max(2, height / 8); }
    int margin() const { return stroke() * 3 / 2; }  // around a text
    int width() const { return height / 2; }
    int advance(char c) const { return (c >= '0' && c <= '9' ? width() : stroke()) + 2 * stroke(); }
};

void draw_digit(Canvas& canvas, int x, int y, const Cell& cell, unsigned lit) {
    const int t = cell.stroke(), w = cell.width(), h = cell.height, m = h / 2;
    const std::array<Area, 7> parts{{{x, y, x + w, y + t},
                                     {x + w - t, y, x + w, y + m},
                                     {x + w - t, y + m, x + w, y + h},
                                     {x, y + h - t, x + w, y + h},
                                     {x, y + m, x + t, y + h},
                                     {x, y, x + t, y + m},
                                     {x, y + m - t / 2, x + w, y + m - t / 2 + t}}};
    for (std::size_t i = 0; i < parts.size(); ++i)
        if (lit >> i & 1) canvas.fill(parts[i], white);
}

void draw_dot(Canvas& canvas, int x, int y, int edge) {
    canvas.fill({x, y, x + edge, y + edge}, white);
}

int text_width(int height, const std::string& text) {
    const Cell cell(height);
    int width = 2 * cell.margin() - 2 * cell.stroke();  // no space behind the last
    for (const char c : text)
        width += cell.advance(c);
    return width;
}

/// Digits, ':' and '.' in white on a dark box, which begins at x, y.
void draw_text(Canvas& canvas, int x, int y, int height, const std::string& text) {
    const Cell cell(height);
    canvas.fill({x, y, x + text_width(height, text), y + height + 2 * cell.margin()}, ink);
    x += cell.margin();
    y += cell.margin();
    for (const char c : text) {
        if (c >= '0' && c <= '9') draw_digit(canvas, x, y, cell, segments[static_cast<std::size_t>(c - '0')]);
        if (c == ':') draw_dot(canvas, x, y + height / 4, cell.stroke());
        if (c == ':') draw_dot(canvas, x, y + height * 3 / 4 - cell.stroke(), cell.stroke());
        if (c == '.') draw_dot(canvas, x, y + height - cell.stroke(), cell.stroke());
        x += cell.advance(c);
    }
}

void draw_background(Canvas& canvas, const Area& sensor) {
    constexpr int margin = 64;  // encoders may pad the picture beyond the sensor: no seam there
    const int width = sensor.width(), ramp = sensor.y0 + sensor.height() * 3 / 4;
    const int right = sensor.x1 + margin, bottom = sensor.y1 + margin;
    for (int i = 0; i < 8; ++i)
        canvas.fill({sensor.x0 + width * i / 8, sensor.y0, right, ramp}, bars[static_cast<std::size_t>(i)]);
    for (int i = 0; i < 32; ++i) {
        const auto level = static_cast<std::uint8_t>(16 + i * 7);
        canvas.fill({sensor.x0 + width * i / 32, ramp, right, bottom}, {level, 128, 128});
    }
}

/// 0 to range and back, one step per step of `at`.
int bounce(std::uint64_t at, int range) {
    range = std::max(1, range);
    const auto period = static_cast<std::uint64_t>(range) * 2;
    const auto phase = static_cast<int>(at % period);
    return phase <= range ? phase : 2 * range - phase;
}

void draw_disc(Canvas& canvas, int x, int y, int radius, const Colour& colour) {
    constexpr int row = 2;  // sensor pixels: one row at half resolution
    int half_width = 0;
    for (int dy = -radius; dy < radius; dy += row) {
        const int room = radius * radius - dy * dy;
        while (half_width * half_width < room)
            ++half_width;
        while (half_width * half_width > room)
            --half_width;
        canvas.fill({x - half_width, y + dy, x + half_width, y + dy + row}, colour);
    }
}

std::string clock_text(const std::timespec& time) {
    std::tm local{};
    localtime_r(&time.tv_sec, &local);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(time.tv_nsec / 1'000'000));
    return text;
}

}  // namespace

void draw_scene(Canvas& canvas, const Area& sensor, const SceneMoment& moment) {
    const int unit = std::max(4, std::min(sensor.width(), sensor.height()) / 24);
    draw_background(canvas, sensor);

    const std::string number = std::to_string(moment.camera);
    const int number_x = sensor.x0 + (sensor.width() - text_width(5 * unit, number)) / 2;
    if (moment.camera != 0) draw_text(canvas, number_x, sensor.y0 + 6 * unit, 5 * unit, number);

    const int radius = 2 * unit, range = sensor.width() - 2 * radius;
    // A loop takes the ball there and back once; else it has a pace of its own.
    const std::uint64_t way = moment.loop == 0
                                  ? moment.picture * static_cast<unsigned>(unit) / 2
                                  : moment.picture * static_cast<unsigned>(range) * 2 / moment.loop;
    const std::uint64_t drop = moment.loop == 0
                                   ? moment.picture * static_cast<unsigned>(unit) / 8
                                   : moment.picture * static_cast<unsigned>(unit) * 8 / moment.loop;
    const int ball_x = radius + bounce(way, range);
    const int ball_y = 17 * unit + bounce(drop, 4 * unit);
    draw_disc(canvas, sensor.x0 + ball_x, sensor.y0 + ball_y, radius, ball_edge);
    draw_disc(canvas, sensor.x0 + ball_x, sensor.y0 + ball_y, radius * 3 / 4, ball);

    const int x = sensor.x0 + unit / 2;
    if (moment.camera != 0) draw_text(canvas, x, sensor.y0 + unit / 2, unit, clock_text(moment.time));
    draw_text(canvas, x, sensor.y0 + 5 * unit / 2, unit, std::to_string(moment.picture));
}

}  // namespace plendix::camera
