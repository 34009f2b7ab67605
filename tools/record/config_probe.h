// Asks cameras through the driver how they have taken their settings.
#pragma once

#include <chrono>
#include <filesystem>
#include <vector>

#include "host/configuration_reader.h"

namespace plendix {

struct ProbedCamera {
    ReportedCamera report;  // the driver's last word
    bool settled = false;   // the camera sends pictures, and all of its settings are in force
};

/// Loads the plug-in (an empty path is default_plugin()) in an empty folder, lets it stream from these
/// cameras until each is settled, was refused, or time is up. Those that are switched off are not waited for,
/// and a signal ends the waiting. Changes the current directory, standard output and signal handlers
/// meanwhile. Throws Failure.
std::vector<ProbedCamera> probe_cameras(const std::filesystem::path& plugin,
                                        const std::vector<CameraSettings>& cameras,
                                        std::chrono::milliseconds patience);

}  // namespace plendix
