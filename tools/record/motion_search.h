// Finds motion in a recording by its motion files, without a look at a picture.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/frame.h"

namespace plendix {

struct MotionQuery {
    int camera = 0;  // 0: all
    std::int64_t from_ms = 0;
    std::int64_t to_ms = 0;     // not included
    MotionZones zones{};        // motion in one of these
    bool enabled_only = false;  // and in a zone that the camera's mask let through
    std::int64_t gap_ms = 0;    // spans that are not farther apart are one
};

struct MotionSpan {
    int camera = 0;
    std::int64_t first_ms = 0;  // of the first and the last picture with motion
    std::int64_t last_ms = 0;
};

/// By beginning, then camera. Files that cannot be read are left out, each with a line in `faults`.
/// Throws Failure when the folder holds no recording of the camera.
std::vector<MotionSpan> find_motion(const std::filesystem::path& folder, const MotionQuery& query,
                                    std::vector<std::string>& faults);

/// Zones as text: "2-4,0-3" are rows 2 to 4 in columns 0 to 3, counted from the top left corner.
/// Throws UsageError.
MotionZones parse_zones(const std::vector<std::string>& texts);

}  // namespace plendix
