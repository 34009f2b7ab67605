// Recordings played to viewers at the pace at which they were recorded, or a multiple of it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "serve/recording_index.h"
#include "serve/viewer.h"

namespace plendix {

/// Asks many threads at once to end, those that sleep, too.
class EndBell {
public:
    using Clock = std::chrono::steady_clock;

    void ring();
    bool rung() const { return rung_; }
    /// Sleeps until then; true when it rang.
    bool sleep_until(Clock::time_point time);

private:
    std::mutex mutex_;
    std::condition_variable woken_;
    std::atomic<bool> rung_{false};
};

/// A thread for each of a bounded number of viewers. Any thread may begin one.
class Playbacks {
public:
    static constexpr std::size_t most = 16;

    Playbacks() = default;
    ~Playbacks();
    Playbacks(const Playbacks&) = delete;
    Playbacks& operator=(const Playbacks&) = delete;

    /// From a moment on to the end of what there is; gaps are left out. Who takes pictures slowly is waited
    /// for. False, and nothing happens, while too many are played already, and after end().
    bool play(const std::shared_ptr<const RecordingIndex>& index, int camera, std::int64_t from_ms,
              double speed, const std::shared_ptr<Viewer>& viewer);
    /// Waits until all have ended, a fraction of a second; none begins any more.
    void end();

private:
    struct Running {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    EndBell bell_;
    std::mutex mutex_;
    std::list<Running> running_;  // guarded by mutex_
};

}  // namespace plendix
