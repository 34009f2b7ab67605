#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `capture`, which keeps what cameras and those who ask them say to each other.
void add_capture_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
