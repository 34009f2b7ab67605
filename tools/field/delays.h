// Durations, counted in classes: quantiles of any number of them in a few kilobytes. One thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace plendix {

/// Sixteen classes to each doubling: what comes out is within 4 % of what went in.
class Delays {
public:
    /// Nothing below 0.
    void add(std::int64_t ns);
    std::uint64_t count() const { return count_; }
    /// The duration that so many of all, 0 to 1, do not exceed, in nanoseconds; 0 where there are none.
    double quantile(double share) const;

private:
    static constexpr std::size_t parts = 16;
    static constexpr std::size_t classes = 61 * parts;
    std::array<std::uint32_t, classes> counts_{};
    std::uint64_t count_ = 0;
};

}  // namespace plendix
