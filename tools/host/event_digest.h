// Events that repeat are told once, with a number.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "host/event.h"

namespace plendix {

/// A log line that differs from one before in its numbers only passes once; those that follow are
/// told in one event a minute: the last of them, with "repeated", the number that it stands for. So
/// are connections, states and motions of one camera, once there were some within a minute. Bounded
/// in events a minute and in memory. One thread.
class EventDigest {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// What is to be told now, in order.
    std::vector<Event> take(const Event& event, Time now);
    std::vector<Event> due(Time now);
    /// At the end: everything that is held back.
    std::vector<Event> flush();

private:
    struct Kind {
        Time began{};  // of the minute
        int passed = 0;
        int held = 0;
        Event last;  // of those held
    };

    Kind& kind_of(const Event& event, Time now);

    std::map<std::string, Kind> kinds_;
    Time next_look_{};
};

}  // namespace plendix
