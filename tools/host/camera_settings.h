// What a host wants of one camera, whole: what is not given has the driver's default.
#pragma once

#include <array>
#include <optional>
#include <string>

namespace plendix {

/// Without one the camera has its own: it may change when the camera does.
enum class Codec { camera_default, jpeg, h264 };

/// The part of the sensor that is delivered, in 1/10000 of its sides.
struct Crop {
    int left = 0;
    int top = 0;
    int width = 10000;
    int height = 10000;

    bool operator==(const Crop& other) const;
};

/// Rows of zones from the top, columns from the left; false: motion there is no motion.
using MotionMask = std::array<std::array<bool, 8>, 8>;

struct CameraSettings {
    int number = 0;  // 1 to 255
    std::string address;
    std::string name;
    bool enabled = true;
    Codec codec = Codec::camera_default;
    int rate = 0;     // frames per second; 0: as many as the sensor gives
    int quality = 0;  // 1 to 10, 10 is the finest; 0: the driver's default
    int width = 0;    // pixels; a size below the sensor's asks for half resolution
    int height = 0;
    Crop crop;
    std::optional<MotionMask> mask;  // without one all zones count

    // Read from the camera at each connection: written to it once it streams, where given.
    std::optional<int> brightness;   // 1 and up
    std::optional<int> saturation;   // 1 and up
    std::optional<int> sharpness;    // 1 and up
    std::optional<int> sensitivity;  // 1 to 10

    std::string trigger_name;  // empty: the driver's default
    bool trigger_normally_closed = false;
    std::string relay_name;
    bool relay_normally_low = false;

    bool operator==(const CameraSettings& other) const;
};

}  // namespace plendix
