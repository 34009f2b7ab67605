// What answers at an address where a camera should be, in words fit for a terminal. Pure function.
#pragma once

#include <string>

#include "link/exchange.h"

namespace plendix {

/// "another TFTP server answers ('File not found')"
std::string answer_words(const link::OddAnswer& answer);

}  // namespace plendix
