// The documents that a host hands to the plug-in.
#pragma once

#include <string>
#include <vector>

namespace plendix {

/// The width and height that ask for the whole sensor: larger than any, so never halved.
constexpr int whole_sensor = 65535;

enum class Codec { camera_default, jpeg, h264 };

/// What a recording asks of one camera. 0 leaves a number to the camera or the plug-in.
struct CameraSettings {
    int number = 1;  // 1 to 255
    std::string address;
    std::string name;
    Codec codec = Codec::camera_default;
    int rate = 0;     // frames per second; 0: as many as the sensor gives
    int quality = 0;  // 1 to 10, 10 is the finest
    int width = 0;    // pixels; a size below the sensor's asks for half resolution
    int height = 0;
};

/// Configuration document that creates or changes these cameras and enables them.
std::string configure_document(const std::vector<CameraSettings>& cameras);
/// Configuration document that removes every camera the plug-in may know.
std::string remove_all_document();

/// Write document: action `action` holds the relay active, or no longer.
std::string relay_document(int camera, int action, bool active);
/// Write document: marks the frames from now on as recorded, or no longer.
std::string recording_document(int camera, int action, bool active);

}  // namespace plendix
