// What the commands that show one camera have in common on the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "host/camera_settings.h"

namespace plendix {

struct LiveOptions {
    std::string address;
    std::optional<std::string> codec, size;
    std::optional<int> rate, quality;
    bool relay_normally_low = false;
    std::string timeout = "15s";
    std::string plugin;
};

void add_live_options(CLI::App& command, LiveOptions& options);
void add_rate_option(CLI::App& command, LiveOptions& options);

/// Throws UsageError.
CameraSettings camera_of(const LiveOptions& options);
std::chrono::milliseconds timeout_of(const LiveOptions& options);

}  // namespace plendix
