#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `snapshot`, which writes a picture of one camera.
void add_snapshot_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
