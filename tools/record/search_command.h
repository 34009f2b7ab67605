#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `search`, which finds motion in a recording.
void add_search_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
