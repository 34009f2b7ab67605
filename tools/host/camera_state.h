// What the host knows of one camera.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/frame.h"

namespace plendix {

enum class CameraCondition {
    off,         // switched off in the settings
    connecting,  // no picture yet
    live,        // pictures come
    silent,      // they came, and stopped
    refused      // the driver does not support its model or firmware
};

/// "off", "connecting", "live", "silent", "refused"
const char* condition_name(CameraCondition condition);

/// A copy of the session's; times are of the monotonic clock.
struct CameraState {
    using Time = std::chrono::steady_clock::time_point;

    int number = 0;
    std::string name;
    std::string address;
    CameraCondition condition = CameraCondition::connecting;
    Time since{};               // of the condition
    std::int64_t since_ms = 0;  // the same, UTC since 1970
    std::string refusal;        // the driver's words, while refused
    int model = 0;              // 0: not known yet, as are firmware and sides
    int firmware = 0;
    FrameCodec codec = FrameCodec::jpeg;
    int width = 0;  // pixels
    int height = 0;

    // Since the session began.
    Time watched_since{};  // the session's beginning, or that of the camera in it
    std::optional<Time> first_frame;
    std::optional<Time> last_frame;
    std::optional<Time> last_loss;  // a picture given up for a missing block, or a time-out
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    std::uint64_t key_frames = 0;
    std::uint64_t motion_events = 0;
    std::uint64_t lost_blocks = 0;  // pictures given up; the driver names one missing block of each
    std::uint64_t timeouts = 0;     // transfers that stalled
    std::uint64_t connections = 0;  // beginnings of video
    std::uint64_t reconnections() const { return connections > 1 ? connections - 1 : 0; }
};

/// "25 of 30 cameras live"
std::string live_of(const std::vector<CameraState>& cameras);

}  // namespace plendix
