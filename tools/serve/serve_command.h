// The command 'plendix serve'.
#pragma once

#include <functional>
#include <memory>

namespace CLI {
class App;
}

namespace plendix {

struct HousePlan;

/// Starts cameras to show and fills in the plan; they live as long as what it returns. Called before
/// there is any thread.
using DemoCameras = std::function<std::shared_ptr<void>(HousePlan& house)>;

void add_serve_command(CLI::App& app, std::function<int()>& chosen, const DemoCameras& demo);

}  // namespace plendix
