// Rates over the last while, from sums that grow.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "host/camera_state.h"

namespace plendix {

struct Rates {
    double frames = 0;    // a second
    double megabits = 0;  // a second, of what the cameras delivered
    double written = 0;   // bytes a second
};

/// Remembers a minute. One thread.
class RateMeter {
public:
    using Time = CameraState::Time;

    void add(const std::vector<CameraState>& cameras, std::uint64_t written, Time now);
    /// Over the last `window`, or what there is of it.
    Rates over(std::chrono::seconds window) const;

private:
    struct Sample {
        Time time{};
        std::uint64_t frames = 0;
        std::uint64_t bytes = 0;
        std::uint64_t written = 0;
    };

    std::deque<Sample> samples_;  // a second apart, but for the last
};

}  // namespace plendix
