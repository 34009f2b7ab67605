// A recording from loading the plug-in to the verdict on the files.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>

#include "host/document_builder.h"

namespace plendix {

class PluginLibrary;

/// Something to do at a moment of the recording, on the recording thread.
struct Step {
    std::chrono::milliseconds at;  // since the plug-in was opened
    std::function<void(PluginLibrary&)> action;
};

struct RecordingPlan {
    std::filesystem::path plugin;  // empty: default_plugin()
    std::filesystem::path output;  // made when missing; the recording works inside it
    std::vector<CameraSettings> cameras;
    std::chrono::milliseconds duration{0};  // 0: until SIGINT or SIGTERM
    bool check = true;                      // decode the files afterwards
    bool faults_expected = false;           // frames that do not decode are told, but no failure
    bool replace = false;                   // overwrite the files of an earlier recording
    std::vector<Step> steps;                // in order of time
};

/// Records, prints events and a line per second to standard error, the table and the names of
/// the files to standard output. Changes the current directory, standard output and signal
/// handlers while it runs. Returns the exit code: done when every camera delivered frames and
/// none of them failed to decode. Throws UsageError and Failure.
int record(const RecordingPlan& plan);

}  // namespace plendix
