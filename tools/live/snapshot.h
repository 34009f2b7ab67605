// Pictures of one camera as files.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

#include "host/camera_settings.h"

namespace plendix {

struct SnapshotPlan {
    CameraSettings camera;
    std::filesystem::path output;               // .jpg or .png; "-": standard output, as JPEG
    std::chrono::milliseconds every{0};         // 0: one picture
    std::uint64_t count = 0;                    // pictures with `every`; 0: until somebody ends it
    std::chrono::milliseconds timeout{15'000};  // for the first picture
    std::filesystem::path plugin;               // empty: default_plugin()
};

/// Returns the exit code: done when there is a picture. Throws UsageError and Failure.
int take_snapshots(const SnapshotPlan& plan);

}  // namespace plendix
