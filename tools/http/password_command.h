// The command 'plendix password'.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace plendix {

void add_password_command(CLI::App& app, std::function<int()>& chosen);

}  // namespace plendix
