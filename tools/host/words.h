// Numbers, times and cameras in the words of a screen. Pure functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>

namespace plendix {

/// "2.50"
std::string fixed(double value, int digits);

/// "12 s", "2 min", "3 h 5 min", "2 days 4 h"
std::string span_words(std::chrono::seconds span);

/// "812 MB", "12.4 GB"; 1 GB is 10^9 bytes, as disks are sold.
std::string byte_words(std::uint64_t bytes);

/// "14:03:05" in local time; with `day` "23 Nov 14:03:05".
std::string clock_words(std::int64_t time_ms, bool day = false);

/// "camera 7", "cameras 1-20, 24"; what finds no room in so many columns is counted: "and 12 more".
std::string camera_words(const std::set<int>& cameras, std::size_t columns);

}  // namespace plendix
