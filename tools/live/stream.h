// One camera's pictures to standard output, for other people's programs.
#pragma once

#include <chrono>
#include <filesystem>

#include "host/camera_settings.h"
#include "live/live_writer.h"

namespace plendix {

struct StreamPlan {
    CameraSettings camera;
    StreamFormat format = StreamFormat::matroska;
    std::chrono::milliseconds timeout{15'000};  // for the first picture
    std::chrono::milliseconds duration{0};      // from the first picture on; 0: until somebody ends it
    std::filesystem::path plugin;               // empty: default_plugin()
};

/// Streams until the reader goes away, a signal asks to stop, or the time is over, and tells people on
/// standard error what comes. Returns the exit code. Throws Failure.
int stream(const StreamPlan& plan);

}  // namespace plendix
