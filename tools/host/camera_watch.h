// The state of all cameras, from what the plug-in delivers and from what it does not.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/camera_settings.h"
#include "host/camera_state.h"
#include "host/event.h"

namespace plendix {

/// Frames come on the plug-in's thread, everything else on the host's: safe with both.
class CameraWatch {
public:
    using Time = CameraState::Time;

    /// Begins to watch these cameras, goes on with those whose address is the same as before and
    /// forgets all others.
    void watch(const std::vector<CameraSettings>& cameras, Time now);

    /// Counts a frame. True when its recording mark is another than that of the frame before.
    bool frame(const Frame& frame, Time now);
    /// Learns from an event of the plug-in; true when the driver has to be asked for its
    /// configuration to know which camera was meant.
    bool event(const Event& event, Time now);
    /// One event for each camera whose condition is another now.
    std::vector<Event> settle(Time now, std::int64_t time_ms);

    std::vector<CameraState> states() const;

private:
    struct Camera {
        CameraSettings settings;
        CameraState state;
        std::uint64_t refusals_before = 0;  // before it was switched on
        bool enabled = true;                // as the driver reports
        bool marked = false;                // for recording
    };

    void begin_again(Camera& camera, Time now) const;
    Event change(CameraState& state, CameraCondition condition, Time now, std::int64_t time_ms) const;
    std::string refusal_of(const CameraState& state) const;
    void learn_configuration(Camera& camera, const Event& event);

    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::map<int, Camera> cameras_;
    std::uint64_t refusal_count_ = 0;  // of the driver, since the session began
    std::set<std::string> refusals_;   // the driver's words since the session began
};

}  // namespace plendix
