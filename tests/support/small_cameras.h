// Simulated cameras at loopback addresses that no other test process uses.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "camera/fleet.h"

namespace plendix {

/// So many cameras of 320 x 240 pixels. Programs with a range each, 0 to 5, do not meet, nor do two runs
/// of the same one.
inline std::vector<camera::Config> small_cameras(int range, std::size_t count) {
    const std::string network = "127." + std::to_string(36 + 15 * range + (getpid() >> 8) % 15) + "." +
                                std::to_string(getpid() & 255) + ".";
    std::vector<camera::Config> cameras(count);
    for (std::size_t i = 0; i < count; ++i) {
        cameras[i].address = network + std::to_string(i + 1);
        cameras[i].sensor_width = 320;
        cameras[i].sensor_height = 240;
    }
    return cameras;
}

}  // namespace plendix
