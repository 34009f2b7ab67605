// The description of the interface for programs, as docs/openapi.json has it.
#pragma once

#include <string>

namespace plendix {

std::string openapi_text();

}  // namespace plendix
