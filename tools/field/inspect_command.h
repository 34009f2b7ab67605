// plendix inspect: what a capture of the traffic with cameras tells.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

void add_inspect_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
