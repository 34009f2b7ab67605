// How requests are taken, and that blocks wait for their acknowledgements.
#pragma once

#include "check/interview.h"

namespace plendix::check {

/// Modes, options and names that the driver does not use, or that mean nothing.
void check_requests(Interview& interview);
/// `picture` is one that the camera serves.
void check_steps(Interview& interview, const link::FileName& picture);
void check_unknown_keys(Interview& interview, const link::FileName& picture);
/// At the end: how long packets were waited for.
void check_waits(Interview& interview);

}  // namespace plendix::check
