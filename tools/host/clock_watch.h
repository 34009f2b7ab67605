// Notices when the wall clock is set.
#pragma once

#include <cstdint>
#include <optional>

namespace plendix {

/// Compares the wall clock with the monotonic one, look by look: a clock that is slewed runs a
/// little faster or slower, one that is set jumps. One thread at a time.
class ClockWatch {
public:
    /// The jump in ms since the look before when it is longer than a second, forward positive.
    std::optional<std::int64_t> look(std::int64_t wall_ms, std::int64_t monotonic_ms);

    /// Counts the jumps.
    std::uint32_t epoch() const { return epoch_; }

private:
    std::optional<std::int64_t> offset_ms_;
    std::uint32_t epoch_ = 0;
};

}  // namespace plendix
