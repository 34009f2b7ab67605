// A camera's settings as JSON: the names of the configuration file. Pure functions.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/camera_settings.h"

namespace plendix {

/// Null stands for what is not wanted in particular.
nlohmann::ordered_json settings_json(const CameraSettings& camera);

/// The settings with those that the patch names in place of what they were; null takes a wish back.
/// Throws UsageError with one line that names the value and says what would be right.
CameraSettings patched(const CameraSettings& camera, const nlohmann::json& patch);

/// Throws UsageError where the change makes two cameras that are on have one address, or two one name.
void require_distinct(const std::vector<CameraSettings>& cameras, const CameraSettings& before,
                      const CameraSettings& changed);

/// The names of what is wanted in particular and not so reported.
std::vector<std::string> differing(const CameraSettings& wanted, const CameraSettings& reported);
/// The names of all that is not the same.
std::vector<std::string> changed_names(const CameraSettings& before, const CameraSettings& after);

}  // namespace plendix
