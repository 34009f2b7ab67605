// The counters of a fleet, for people and for programs.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "camera/config.h"

namespace plendix {

struct CameraCounters {
    std::string address;
    camera::Counters counters;
};

/// A line per camera, the sum of more than one, and the faults by kind, if there were any.
void print_counters(std::ostream& out, const std::vector<CameraCounters>& cameras);
/// One JSON object: {"cameras": [...], "total": {...}}.
void print_counters_json(std::ostream& out, const std::vector<CameraCounters>& cameras);

}  // namespace plendix
