#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `probe`, which tells what is at an address.
void add_probe_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
