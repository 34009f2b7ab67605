// Captures what cameras and those who ask them say to each other, until told to stop.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace plendix {

struct CapturePlan {
    std::vector<std::string> addresses;  // dotted IPv4, each once
    std::string interface = "any";
    std::filesystem::path output;          // "-" is standard output
    std::chrono::milliseconds ring{};      // keep the last so much; 0: everything
    std::uint64_t ring_bytes = 0;          // at most
    std::chrono::milliseconds duration{};  // 0: until told to stop
    bool until_silent = false;             // until a camera does not answer any more
    bool pictures = true;
};

/// Returns an exit code. Throws Failure.
int capture(const CapturePlan& plan);

}  // namespace plendix
