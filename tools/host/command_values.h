// Values of the command line that need more than a number check.
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "host/document_builder.h"

namespace plendix {

/// Each throws UsageError, which names the value and says what would be right.
std::pair<int, int> parse_size(const std::string& text);  // "1280x960", pixels
std::string parse_address(const std::string& text);       // dotted IPv4
Codec parse_codec(const std::string& text);               // "", "jpeg", "h264"
std::chrono::milliseconds parse_seconds(double seconds);  // 0 or more, at most a year

}  // namespace plendix
