#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

/// Adds the subcommand `record`, which records cameras through the plug-in.
void add_record_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
