#include "host/clock_watch.h"

namespace plendix {

static constexpr std::int64_t longest_drift_ms = 1000;  // between two looks

std::optional<std::int64_t> ClockWatch::look(std::int64_t wall_ms, std::int64_t monotonic_ms) {
    const std::int64_t offset_ms = wall_ms - monotonic_ms;
    const std::int64_t jump_ms = offset_ms - offset_ms_.value_or(offset_ms);
    offset_ms_ = offset_ms;
    if (jump_ms >= -longest_drift_ms && jump_ms <= longest_drift_ms) return std::nullopt;
    ++epoch_;
    return jump_ms;
}

}  // namespace plendix
