// Motion comes and goes many times a second: joins what is close together.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <vector>

#include "host/event.h"

namespace plendix {

/// Tells the beginning of motion at once, and its end when `hold` has passed without motion: with
/// the time at which it really ended, and how long it lasted ("seconds"). A camera that loses its
/// connection or its place has no motion any more. All other events pass as they are. One thread.
class MotionHold {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// With a hold of 0 everything passes as it is.
    explicit MotionHold(std::chrono::milliseconds hold) : hold_(hold) {}

    /// What is to be told now, in order.
    std::vector<Event> take(const Event& event, Time now);
    std::vector<Event> due(Time now);
    /// At the end: motions that have ended, however short ago.
    std::vector<Event> flush();

    /// With motion, as far as it was told.
    std::set<int> moving() const;

private:
    struct Motion {
        Time began{};
        bool active = true;
        Time ended{};
        Event end;  // as it came
    };

    void take_motion(const Event& event, Time now, std::vector<Event>& told);
    static void stop(Motion& motion, const Event& event, Time now);
    static Event ending(const Motion& motion);

    std::chrono::milliseconds hold_;
    std::map<int, Motion> motions_;  // by camera; none for a calm one
};

}  // namespace plendix
