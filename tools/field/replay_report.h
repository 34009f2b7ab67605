// What 'plendix replay' tells: who plays what, and how much of it was asked for. Pure functions.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "field/replay_camera.h"
#include "field/replay_capture.h"

namespace plendix {

struct ReplayedCamera {
    const CapturedCamera* captured = nullptr;
    std::uint32_t address = 0;
    ReplayCounts counts;
};

/// "127.0.2.1 is camera 10.0.0.7: 300 pictures in 10.1 s, 64 register requests of 10.0.0.2"
std::string replay_line(const CapturedCamera& camera, std::uint32_t address);

void print_replay(std::ostream& out, const std::vector<ReplayedCamera>& cameras);
void print_replay_json(std::ostream& out, const std::vector<ReplayedCamera>& cameras);

}  // namespace plendix
