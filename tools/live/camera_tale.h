// What people are told of one live camera: lines fit for a terminal.
#pragma once

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "host/camera_state.h"
#include "host/event.h"
#include "host/picture_format.h"

namespace plendix {

/// Where no picture comes it asks the network why, once, and gives up after the time-out; after the first
/// picture it waits for ever. The thread that owns it calls.
class CameraTale {
public:
    using Time = CameraState::Time;

    CameraTale(std::chrono::milliseconds timeout, Time start) : timeout_(timeout), start_(start) {}

    /// What is new.
    std::vector<std::string> look(const std::vector<Event>& events, const CameraState& state, Time now);
    /// Throws Failure where nothing came in time, or the driver refuses the camera.
    void require_camera(const CameraState& state, Time now) const;

private:
    void ask(const CameraState& state, Time now, std::vector<std::string>& lines);
    bool late(Time now) const { return now - start_ >= timeout_; }

    const std::chrono::milliseconds timeout_;
    const Time start_;
    bool asked_ = false;
    std::future<std::string> answer_;
};

/// "1600x1200 H.264"
std::string format_text(const PictureFormat& format);

}  // namespace plendix
