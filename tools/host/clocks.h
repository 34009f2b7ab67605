// The two clocks of a host: when something happened for people, and how long it took.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "host/event.h"

namespace plendix {

/// Wall clock: UTC since 1970.
inline std::int64_t utc_ms() {
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count();
}

/// Monotonic clock, since some moment before the process.
inline std::int64_t milliseconds_of(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

/// Both clocks at one moment.
struct ClockReading {
    std::int64_t wall_ms = 0;
    std::int64_t monotonic_ms = 0;
};

/// Nothing when the thread was held up between the two: their distance would tell of a clock that
/// nobody set. The next reading does.
inline std::optional<ClockReading> read_clocks() {
    constexpr std::int64_t longest_ms = 100;
    const std::int64_t before_ms = milliseconds_of(std::chrono::steady_clock::now());
    const ClockReading reading{utc_ms(), milliseconds_of(std::chrono::steady_clock::now())};
    if (reading.monotonic_ms - before_ms > longest_ms) return std::nullopt;
    return reading;
}

/// The wall clock was set by so many milliseconds and shows `time_ms` now.
inline Event clock_event(std::int64_t time_ms, std::int64_t jump_ms) {
    Event event{time_ms, 0, EventKind::clock};
    event.values["set_by_ms"] = jump_ms;
    return event;
}

}  // namespace plendix
