// What follows from a camera's registers for whoever takes its pictures through the driver. Pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace plendix {

struct PictureSize {
    int width = 0, height = 0;  // pixels
    bool empty() const { return width <= 0 || height <= 0; }
};

struct ZoneGrid {
    int columns = 0, rows = 0;
    int edge = 0;  // of a zone, sensor pixels
};

constexpr int register_model = 122, register_firmware = 123, register_io = 25;
constexpr int register_left = 70, register_top = 71, register_right = 72, register_bottom = 73;
/// What the driver reads behind model and firmware before it asks for a picture.
constexpr std::array<int, 10> settled_registers{2, 15, 16, 70, 71, 72, 73, 109, 110, 111};

bool driver_takes_model(std::uint16_t model);
bool driver_takes_firmware(std::uint16_t firmware);

/// The answer that stands for "not read yet": the register is asked again and again, and no picture comes.
std::optional<std::uint16_t> unread_value(int number);

/// Whether a camera that is not told a size and a codec sends H.264.
bool own_codec_is_h264(std::uint16_t model);

/// The sensor in whole steps of 64 x 32 pixels, which whole macroblocks of H.264 follow from, also at half
/// resolution; empty where there is no whole step.
PictureSize largest_picture(PictureSize sensor);

/// Frames per second.
int highest_rate(PictureSize sensor);

/// As the driver sets them.
ZoneGrid motion_zones(PictureSize sensor);

}  // namespace plendix
