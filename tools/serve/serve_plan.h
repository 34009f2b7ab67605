// What 'plendix serve' was asked to do, and doing it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "http/guard.h"
#include "http/server.h"
#include "serve/house.h"

namespace plendix {

struct ServePlan {
    HousePlan house;
    GuardOptions guard;
    ServerOptions server;
    std::string version;
    bool scratch = true;  // no state folder was named: a temporary one
    /// Before there is any thread, behind the listening socket; what it returns lives until the end.
    std::function<std::shared_ptr<void>(HousePlan& house)> prepare;
};

/// Prints the page's address to standard output, serves until SIGINT or SIGTERM. Throws UsageError and
/// Failure.
int serve(ServePlan plan);

}  // namespace plendix
