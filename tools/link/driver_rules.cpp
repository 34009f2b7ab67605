#include "link/driver_rules.h"

#include <algorithm>
#include <limits>

namespace plendix {
namespace {

constexpr int last_model = 5;  // in the last two digits
constexpr std::uint16_t first_firmware = 61705;
constexpr int step_across = 64, step_down = 32;  // of a picture's sides, sensor pixels
constexpr int most_zones = 8;                    // across and down
constexpr int zone_unit = 32;                    // sensor pixels in one unit of the zone scale
constexpr int greatest_scale = 15;               // the register has 4 bits for it

/// At most so many frames a second where the sensor has one of these sides, or a larger one.
struct RateLimit {
    int width, height;
    int rate;
};

constexpr int any = std::numeric_limits<int>::max();
constexpr RateLimit rate_limits[] = {{2592, 1944, 9},  {2560, 1600, 12}, {2048, 1536, 15},
                                     {1920, 1200, 20}, {1600, any, 24},  {1280, 1024, 30}};
constexpr int small_sensor_rate = 45;

}  // namespace

bool driver_takes_model(std::uint16_t model) {
    return model % 100 <= last_model;
}

bool driver_takes_firmware(std::uint16_t firmware) {
    return firmware >= first_firmware;
}

std::optional<std::uint16_t> unread_value(int number) {
    switch (number) {
        case 2:
        case register_right:
        case register_bottom:
        case 110:
        case 111:
        case register_model:
        case register_firmware:
            return std::uint16_t{0};
        case 15:
        case 16:
        case register_left:
        case register_top:
        case 109:
            return std::uint16_t{65535};
        default:
            return std::nullopt;
    }
}

bool own_codec_is_h264(std::uint16_t model) {
    return model % 10 != 0;
}

PictureSize largest_picture(PictureSize sensor) {
    const PictureSize size{sensor.width / step_across * step_across, sensor.height / step_down * step_down};
    return size.empty() ? PictureSize{} : size;
}

int highest_rate(PictureSize sensor) {
    for (const RateLimit& limit : rate_limits)
        if (sensor.width >= limit.width || sensor.height >= limit.height) return limit.rate;
    return small_sensor_rate;
}

ZoneGrid motion_zones(PictureSize sensor) {
    constexpr int longest = most_zones * zone_unit;  // side that a scale of 1 covers
    const int larger = std::max(sensor.width, sensor.height);
    const int scale = std::clamp((larger + longest - 1) / longest, 1, greatest_scale);
    return {std::min(sensor.width / scale / zone_unit, most_zones),
            std::min(sensor.height / scale / zone_unit, most_zones), scale * zone_unit};
}

}  // namespace plendix
