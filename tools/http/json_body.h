// What a program sends to change something.
#pragma once

#include <nlohmann/json.hpp>

#include "http/request.h"

namespace plendix {

/// Throws UsageError where the body is no JSON, or nested deeper than anything that is asked for here.
nlohmann::json json_body(const Request& request);

}  // namespace plendix
