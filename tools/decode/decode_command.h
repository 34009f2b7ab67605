#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `decode`, which makes pictures of raw transfers.
void add_decode_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
