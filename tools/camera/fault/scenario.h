// A scenario: which faults come to which cameras of a fleet, and when.
#pragma once

#include <chrono>
#include <istream>
#include <string>
#include <vector>

#include "camera/fault/fault.h"

namespace plendix::camera {

/// One step for one camera.
struct ScenarioStep {
    std::chrono::milliseconds at{0};  // since the fleet was started
    std::size_t camera = 0;           // index in the fleet
    Fault fault;
};

/// One step a line: time, cameras, fault, value ("10s 7-9 loss 2%"). Cameras are counted from 1 in
/// the order of the fleet: a number, a range, a list of both, or '*' for all. '#' begins a comment.
/// Throws UsageError with "name:line: " in front of what is wrong and what was expected.
std::vector<ScenarioStep> parse_scenario(std::istream& text, const std::string& name, std::size_t cameras);
/// Throws UsageError also when the file cannot be read.
std::vector<ScenarioStep> read_scenario(const std::string& file, std::size_t cameras);

}  // namespace plendix::camera
