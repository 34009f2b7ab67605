// The options of `plendix camera`, as typed and as a fleet takes them.
#pragma once

#include <string>
#include <vector>

#include "camera/config.h"

namespace plendix {

struct CameraOptions {
    std::string address = "127.0.1.1";
    int count = 1;
    // Dealt out to the cameras in turn.
    std::vector<int> models{camera::Config{}.model}, firmwares{camera::Config{}.firmware};
    std::vector<std::string> sensors{"1600x1200"};
    std::string mac;                     // of the first camera; the others count on
    std::vector<std::string> registers;  // "2=99"
    std::string scene, trigger, faults, scenario;
    double rate_mbit = 0, max_fps = 0;
    int burst = 1;
    std::uint64_t seed = 1;
    double duration = 0;  // seconds, 0 without end
    bool verbose = false, json = false;
};

/// Both throw UsageError, which names the value and says what would be right.
std::vector<camera::Config> make_configs(const CameraOptions& options);
camera::Behaviour make_behaviour(const CameraOptions& options);

}  // namespace plendix
