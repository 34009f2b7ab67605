#include "field/delays.h"

#include <algorithm>
#include <cmath>

namespace plendix {
namespace {

constexpr unsigned part_bits = 4;

/// Of the highest bit that is set.
unsigned position(std::uint64_t value) {
    unsigned bit = 0;
    while (value >>= 1U)
        ++bit;
    return bit;
}

}  // namespace

void Delays::add(std::int64_t ns) {
    if (ns < 0) return;
    const auto value = static_cast<std::uint64_t>(ns);
    std::size_t place = value;
    if (value >= parts) {
        const unsigned shift = position(value) - part_bits;
        place = (shift + 1) * parts + ((value >> shift) - parts);
    }
    ++counts_.at(std::min(place, classes - 1));
    ++count_;
}

double Delays::quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count_)));
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < classes; ++i) {
        seen += counts_.at(i);
        if (seen == 0 || seen < wanted) continue;
        if (i < parts) return static_cast<double>(i);
        const auto width = std::ldexp(1.0, static_cast<int>(i / parts) - 1);
        return (static_cast<double>(parts + i % parts) + 0.5) * width;
    }
    return 0;
}

}  // namespace plendix
