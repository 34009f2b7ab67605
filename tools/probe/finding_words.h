// What was found, in the words of a screen and in the names of JSON. Pure functions.
#pragma once

#include <string>

#include "probe/finding.h"

namespace plendix {

/// "silent", "camera": for programs.
const char* what_name(What what);

/// Nobody who speaks TFTP is there, whatever the reason.
bool is_nobody(What what);

/// "no camera: our own request comes back: an echo service or a loop"; of a camera only "a camera".
std::string finding_words(const Finding& finding);

}  // namespace plendix
