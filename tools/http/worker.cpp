#include "http/worker.h"

#include <utility>

namespace plendix {

Worker::Worker(std::size_t most_waiting) : most_waiting_(most_waiting), thread_([this] { run(); }) {}

Worker::~Worker() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        filled_.notify_one();
    }
    thread_.join();
}

bool Worker::has_room() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size() < most_waiting_;
}

void Worker::push(std::function<void()> job) {
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(job));
    filled_.notify_one();
}

void Worker::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        filled_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (stopping_) return;
        const std::function<void()> job = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}

Worker& Workers::of(Lane lane) {
    if (lane == Lane::login) return login_;
    if (lane == Lane::long_job) return long_job_;
    return lane == Lane::reader ? reader_ : quick_;
}

}  // namespace plendix
