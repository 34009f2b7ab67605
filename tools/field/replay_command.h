#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `replay`, which plays the cameras of a capture.
void add_replay_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
