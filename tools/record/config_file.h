// The recorder's configuration file: cameras and options as TOML. docs/recording.md has its keys.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/camera_settings.h"
#include "record/record_options.h"

namespace plendix {

struct RecorderConfig {
    RecordOptions options;
    bool records = false;                 // it says how: it has a [record] table
    std::vector<CameraSettings> cameras;  // at least one, in order of number
};

/// Throws UsageError, one line with the file, the line and what would be right.
RecorderConfig read_config(const std::filesystem::path& file);

/// The cameras as a configuration file has them, whole. A remark stands as a comment in front of the
/// camera of that number.
std::string config_text(const std::vector<CameraSettings>& cameras,
                        const std::map<int, std::string>& remarks = {});

}  // namespace plendix
