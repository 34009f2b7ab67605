// Asks many addresses at once, a bounded number at a time, from one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "probe/dialog.h"

namespace plendix {

struct ProbeProgress {
    std::size_t done = 0, all = 0;
    std::size_t cameras = 0;  // that the driver takes
};

/// Told several times a second; false ends the probe.
using KeepGoing = std::function<bool(const ProbeProgress&)>;

/// What was found, in the order of the addresses. Those that were not finished when it was ended are
/// `What::unasked`. Blocks.
std::vector<Finding> probe_addresses(const std::vector<std::uint32_t>& addresses, const ProbeWish& wish,
                                     const KeepGoing& keep_going);

}  // namespace plendix
