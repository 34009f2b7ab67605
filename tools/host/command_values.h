// Values of the command line and of configuration files that need more than a number check.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/document_builder.h"

namespace plendix {

/// Each throws UsageError, which names the value and says what would be right.
std::pair<int, int> parse_size(const std::string& text);  // "1280x960", pixels
std::string parse_address(const std::string& text);       // dotted IPv4
Codec parse_codec(const std::string& text);               // "", "jpeg", "h264"
std::chrono::milliseconds parse_seconds(double seconds);  // 0 or more, at most a year

/// Nothing when it is from 1 to `most`, or 0, which stands for "not given".
void require_range(const char* what, int value, int most);

/// "90s", "10m", "12h", "7d", a number alone for seconds; with decimals where wanted; at most 100 years.
std::chrono::milliseconds parse_duration(const std::string& text);
/// "200G", "512M": K, M, G and T are 1024 times what stands before; a number alone for bytes.
std::uint64_t parse_bytes(const std::string& text);

/// Throws UsageError where standard output is a terminal, and shows a way out.
void require_no_terminal(const std::string& example);

}  // namespace plendix
