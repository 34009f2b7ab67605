#include "serve/viewer.h"

#include <utility>

namespace plendix {

void Viewer::on_arrival(std::function<void()> wake) {
    const std::lock_guard<std::mutex> lock(mutex_);
    wake_ = std::move(wake);
}

/// Requires mutex_.
bool Viewer::has_room(const Frame& frame) const {
    if (waiting_.empty()) return true;
    return waiting_.size() < limits_.pictures && waiting_bytes_ + frame.data.size() <= limits_.bytes;
}

bool Viewer::offer(const FramePointer& frame) {
    std::function<void()> wake;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if ((needs_key_ && !frame->key) || !has_room(*frame)) {
            lost_ += begun_ ? 1U : 0U;  // what came before the first one was nobody's loss
            needs_key_ = true;
            return !begun_;
        }
        needs_key_ = false;
        begun_ = true;
        if (waiting_.empty()) wake = wake_;
        waiting_bytes_ += frame->data.size();
        waiting_.push_back(frame);
    }
    if (wake) wake();
    return true;
}

void Viewer::finish() {
    std::function<void()> wake;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        finished_ = true;
        wake = wake_;
    }
    if (wake) wake();
}

bool Viewer::finished() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return finished_ && waiting_.empty();
}

FramePointer Viewer::take() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.empty()) return nullptr;
    FramePointer frame = std::move(waiting_.front());
    waiting_.pop_front();
    waiting_bytes_ -= frame->data.size();
    return frame;
}

std::size_t Viewer::waiting() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return waiting_.size();
}

std::uint64_t Viewer::lost() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return lost_;
}

}  // namespace plendix
