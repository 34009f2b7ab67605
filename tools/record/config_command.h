#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `config`, which checks a configuration file and shows what cameras make of it.
void add_config_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
