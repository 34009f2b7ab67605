#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `demo`, which records two simulated cameras of the same process.
void add_demo_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
