// The generated scene: colour bars and a grey ramp, the camera's number, the picture's number and
// the clock in the top left corner, and a ball that moves with the picture number.
#pragma once

#include <cstdint>
#include <ctime>

#include "camera/picture/picture.h"

namespace plendix::camera {

struct SceneMoment {
    unsigned camera = 1;        // 0: pictures for many cameras, without number and clock
    std::uint64_t picture = 0;  // counts the pictures of the camera
    std::timespec time{};       // wall clock
    std::uint64_t loop = 0;     // pictures after which the ball is back; 0 never mind
};

/// Draws the whole sensor; the canvas takes its part of it.
void draw_scene(Canvas& canvas, const Area& sensor, const SceneMoment& moment);

}  // namespace plendix::camera
