// What the command line or a configuration file wants of a recording, apart from its cameras.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace plendix {

struct RecordOptions {
    std::filesystem::path plugin;  // empty: default_plugin()
    std::filesystem::path output = "plendix-recording";
    std::filesystem::path state;  // for the plug-in's settings and log; empty: output

    std::chrono::milliseconds duration{0};  // 0: until a signal
    std::chrono::milliseconds segment{0};   // of each file; 0: files end only where the stream changes
    std::chrono::milliseconds keep{0};      // age at which files are removed; 0: never
    std::uint64_t keep_size = 0;            // bytes that files may take; 0: as many as there are
    bool keep_per_camera = false;           // keep_size is that of each camera, not of all together
    bool local_names = false;               // folders and files are named by local time, not UTC
    bool replace = false;                   // overwrite the recording in the folder

    std::optional<bool> check;  // decode the files at the end; without a word only after short recordings
    bool quiet = false;
    bool verbose = false;
    bool all_events = false;                      // each motion event as it comes, without hold
    std::chrono::milliseconds motion_hold{5000};  // motion ends when there was none for so long
};

}  // namespace plendix
