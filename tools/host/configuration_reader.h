// What the driver says of its cameras: its complete configuration, read back into settings.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/camera_settings.h"

namespace plendix {

/// One camera as the driver has it.
struct ReportedCamera {
    /// A size that is not known yet is 0, as is a rate. The codec is the one in use. A camera that the
    /// driver refuses is not enabled.
    CameraSettings settings;
    int model = 0;  // 0: not read yet, as is the firmware
    int firmware = 0;
    std::string serial;        // "02-50-4C-2C-01-01", zeros until the first picture
    bool sensor_read = false;  // the codec, size and rate are those that come
    int zone_width = 0;        // edges of a motion zone in delivered pixels; 0: not known
    int zone_height = 0;
};

/// Nothing when the document is no complete configuration.
std::optional<std::vector<ReportedCamera>> read_configuration(const std::string& document);

}  // namespace plendix
