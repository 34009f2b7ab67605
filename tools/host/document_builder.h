// The documents that a host hands to the plug-in.
#pragma once

#include <string>
#include <vector>

#include "host/camera_settings.h"

namespace plendix {

/// The width and height that ask for the whole sensor: larger than any, so never halved.
constexpr int whole_sensor = 65535;

/// Configuration document that creates or changes these cameras and enables them.
std::string configure_document(const std::vector<CameraSettings>& cameras);
/// Configuration document that removes every camera the plug-in may know.
std::string remove_all_document();

/// Write document: action `action` holds the relay active, or no longer.
std::string relay_document(int camera, int action, bool active);
/// Write document: marks the frames from now on as recorded, or no longer.
std::string recording_document(int camera, int action, bool active);

}  // namespace plendix
