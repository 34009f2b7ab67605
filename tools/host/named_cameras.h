// Cameras that are named on a command line.
#pragma once

#include <string>
#include <vector>

#include "host/camera_settings.h"

namespace plendix {

/// Cameras by their addresses alone: the first is camera 1 and so on. Throws UsageError also where there are
/// more than 255, or two have one address.
std::vector<CameraSettings> named_cameras(const std::vector<std::string>& addresses);

}  // namespace plendix
