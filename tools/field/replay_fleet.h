// The cameras of a capture on addresses of this machine, served by a thread of their own.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "field/replay_camera.h"
#include "host/descriptor.h"

namespace plendix {

/// Built, started and stopped by one thread.
class ReplayFleet {
public:
    /// Camera i of the capture gets the address `first` + i. Throws Failure. The log is called on the
    /// fleet's thread. The capture outlives it.
    ReplayFleet(const ReplayCapture& capture, std::uint32_t first, const ReplayOptions& options,
                const ReplayLog& log = {});
    ~ReplayFleet();
    ReplayFleet(const ReplayFleet&) = delete;
    ReplayFleet& operator=(const ReplayFleet&) = delete;

    void start();
    void stop();  // waits for the thread; calling it again does nothing

    /// When every camera that has pictures had played them all or, where none has pictures, when somebody
    /// sent something last; nothing before that. For any thread.
    std::optional<ReplaySession::Time> finished() const;
    /// While the thread does not run.
    ReplayCounts counts(std::size_t i) const { return cameras_.at(i)->counts(); }

private:
    using Time = ReplaySession::Time;

    void run();
    void serve(std::uint64_t mark, Time now);
    void run_due(Time now);
    void plan(std::size_t camera);
    void arm_timer();

    std::vector<std::unique_ptr<ReplayCamera>> cameras_;
    std::vector<Time> due_;                         // by camera
    std::set<std::pair<Time, std::size_t>> order_;  // of those that are due at some time
    std::set<std::size_t> unfinished_;
    Descriptor epoll_, wake_, timer_;
    bool pictures_ = false;               // any camera has some
    std::atomic<Time::rep> finished_{0};  // since the clock's epoch; 0: not yet
    std::atomic<bool> stop_{false};
    Time armed_ = ReplaySession::never;
    std::thread thread_;
};

}  // namespace plendix
