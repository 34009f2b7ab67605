// `plendix probe --check`.
#pragma once

#include <chrono>
#include <string>

namespace plendix {

struct CheckWish {
    std::string address;  // dotted IPv4
    bool relay = false;   // may be switched
    bool json = false;
    std::chrono::milliseconds patience{2'000};  // for one packet
};

/// Prints the report. Returns the exit code: failed when a rule does not hold, or nobody is there.
int check_camera(const CheckWish& wish);

}  // namespace plendix
