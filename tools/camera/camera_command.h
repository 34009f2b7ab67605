#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `camera`, which runs a simulated camera until Ctrl-C.
void add_camera_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
