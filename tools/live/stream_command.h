#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `stream`, which feeds other people's programs with one camera.
void add_stream_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
