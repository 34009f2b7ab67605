// What is to be done later on the I/O thread, which waits for it together with its sockets.
#pragma once

#include <chrono>
#include <functional>
#include <map>

namespace plendix::camera {

using Clock = std::chrono::steady_clock;

/// One thread.
class Agenda {
public:
    void at(Clock::time_point time, std::function<void()> action) {
        actions_.emplace(time, std::move(action));
    }
    static constexpr Clock::time_point never = Clock::time_point::max();
    Clock::time_point next() const { return actions_.empty() ? never : actions_.begin()->first; }
    /// Does all that is due by now; what these actions add for now is left to the next call.
    void run(Clock::time_point now) {
        std::multimap<Clock::time_point, std::function<void()>> due;
        while (!actions_.empty() && actions_.begin()->first <= now)
            due.insert(due.end(), actions_.extract(actions_.begin()));
        for (auto& [time, action] : due)
            action();
    }

private:
    std::multimap<Clock::time_point, std::function<void()>> actions_;
};

}  // namespace plendix::camera
