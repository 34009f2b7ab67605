// A recording from loading the plug-in to the verdict on the files.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>

#include "host/camera_settings.h"
#include "record/recorder.h"
#include "record/screen.h"

namespace plendix {

class Session;

/// Something to do at a moment of the recording, on the recording thread.
struct RecordingStep {
    std::chrono::milliseconds at;  // since the plug-in was opened
    std::function<void(Session&)> action;
};

struct RecordingPlan {
    std::filesystem::path plugin;  // empty: default_plugin()
    std::filesystem::path output;  // made when missing
    std::filesystem::path state;   // for the plug-in's settings and log; empty: the output folder
    std::vector<CameraSettings> cameras;
    std::chrono::milliseconds duration{0};  // 0: until SIGINT or SIGTERM
    RecorderRules rules;
    ScreenOptions screen;
    bool check = false;                // decode the files afterwards
    bool faults_expected = false;      // frames that do not decode are told, but no failure
    std::vector<RecordingStep> steps;  // in order of time

    /// Reads the configuration file again; without one SIGHUP ends the recording. Throws UsageError.
    std::function<std::vector<CameraSettings>()> reload;
};

/// Records, tells people on standard error how it goes, and prints the table and the names of the
/// files to standard output. Changes the current directory, standard output and signal handlers
/// while it runs. Returns the exit code: done when every camera delivered frames and none of them
/// failed to decode; as a service, when it ended because it was asked to. Throws UsageError and Failure.
int record(const RecordingPlan& plan);

}  // namespace plendix
