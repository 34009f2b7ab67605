// A thread for handlers that take their time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "http/router.h"

namespace plendix {

/// Does what it is given in that order. One thread gives.
class Worker {
public:
    explicit Worker(std::size_t most_waiting);
    /// What waits is left undone, what runs is waited for.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    bool has_room() const;
    void push(std::function<void()> job);

private:
    void run();

    const std::size_t most_waiting_;
    mutable std::mutex mutex_;
    std::condition_variable filled_;
    // Guarded by mutex_:
    std::deque<std::function<void()>> waiting_;
    bool stopping_ = false;
    std::thread thread_;  // the last member: it uses the others
};

/// Those of a server.
class Workers {
public:
    Worker& of(Lane lane);  // not of Lane::server

private:
    Worker quick_{64}, reader_{32}, long_job_{8}, login_{16};
};

}  // namespace plendix
