// What a check found, for people and for programs.
#pragma once

#include <ostream>

#include "check/check_camera.h"

namespace plendix::check {

/// A line for each rule in its group; below what does not hold, what was sent, came and was expected.
void print_report(std::ostream& out, const CheckReport& report);
/// One object.
void print_report_json(std::ostream& out, const CheckReport& report);

}  // namespace plendix::check
