// Moments of the wall clock on the command line and in what commands print.
#pragma once

#include <cstdint>
#include <string>

namespace plendix {

enum class DayMeans { its_beginning, its_end };

/// "2026-11-23", "2026-11-23T14:00", "2026-11-23T14:00:05", "...05.250", each with Z for UTC; without it
/// local time, or UTC when told so. Milliseconds since 1970. Throws UsageError that names the option.
std::int64_t parse_moment(const char* option, const std::string& text, bool utc, DayMeans day);

/// "2026-11-23T14:00:05.250", local time, or UTC with a Z: parse_moment reads both.
std::string moment_text(std::int64_t time_ms, bool utc);

}  // namespace plendix
