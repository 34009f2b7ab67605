// Pseudo-random numbers that are the same on every machine and with every library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plendix::camera {

/// SplitMix64: eight bytes of state, so that a fleet can afford one for each kind of fault.
class Random {
public:
    explicit Random(std::uint64_t seed = 0) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15U);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31);
    }
    /// 0 to 1, 1 exclusive.
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }
    /// 0 to count - 1; `count` is not 0.
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }

private:
    std::uint64_t state_;
};

}  // namespace plendix::camera
