// Scenes of a fixed number of pictures, shown again and again. One thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "camera/picture/picture.h"

namespace plendix::camera {

class Loop {
public:
    Loop() = default;
    virtual ~Loop() = default;
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /// Pictures until it begins again; a still scene may have one.
    virtual std::size_t size() const = 0;
    /// Draws picture `index` of the sensor's view, of which the target takes the part that begins
    /// at `area`. What the target has beyond the sensor is filled with what is next to it.
    virtual void draw(std::size_t index, const Picture& target, const Area& area, bool half,
                      const Area& sensor) = 0;
};

/// The generated scene, without a camera's number and the clock.
std::unique_ptr<Loop> generated_loop();

/// A picture or video file, scaled to the sensor. Of a video the first pictures are kept, as many
/// as fit the memory set aside for them, no larger than `largest`. Throws Failure with one line
/// when the file cannot be read.
std::unique_ptr<Loop> file_loop(const std::string& file, const Size& largest);

}  // namespace plendix::camera
