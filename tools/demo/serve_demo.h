// Cameras for 'plendix serve --demo'.
#pragma once

#include <memory>

namespace plendix {

struct HousePlan;

/// Two simulated cameras, one JPEG and one H.264, recorded for a while in the plan's state folder. They
/// run as long as what it returns lives. Before there is any thread. Throws Failure.
std::shared_ptr<void> serve_demo_cameras(HousePlan& house);

}  // namespace plendix
