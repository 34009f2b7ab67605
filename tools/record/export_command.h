#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `export`, which cuts a clip out of a recording.
void add_export_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
