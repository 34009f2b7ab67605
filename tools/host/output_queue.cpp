#include "host/output_queue.h"

#include <algorithm>
#include <utility>

namespace plendix {
namespace {

constexpr std::size_t event_reserve_bytes = 8U << 20U;
constexpr std::size_t latest_bytes = 64U << 20U;  // a large picture of each of 32 cameras
constexpr std::size_t event_bytes = 1U << 10U;    // of an ordinary one, roughly

std::size_t bytes_of(const Event& event) {
    const auto text = event.values.find("text");
    const bool told = text != event.values.end() && text->is_string();
    return event_bytes + (told ? text->get_ref<const std::string&>().size() : 0);
}

std::size_t bytes_of(const Delivery& delivery) {
    const auto* frame = std::get_if<FramePointer>(&delivery);
    return frame != nullptr ? (*frame)->data.size() : bytes_of(std::get<Event>(delivery));
}

}  // namespace

OutputQueue::OutputQueue(std::size_t limit_bytes, std::chrono::milliseconds linger)
    : limit_bytes_(limit_bytes), linger_(linger) {}

OutputQueue::OutputQueue(Latest) : limit_bytes_(latest_bytes), linger_(0), latest_(true) {}

/// Requires mutex_: whether the output is to be woken at once.
bool OutputQueue::enough() const {
    if (linger_.count() == 0) return !waiting_.empty();
    return waiting_bytes_ > limit_bytes_ / 4;
}

/// Requires mutex_.
void OutputQueue::wake() {
    if (enough()) filled_.notify_one();
}

/// Requires mutex_.
void OutputQueue::drop_waiting(int camera) {
    const auto is_its_frame = [camera](const Delivery& delivery) {
        const auto* frame = std::get_if<FramePointer>(&delivery);
        return frame != nullptr && (*frame)->camera == camera;
    };
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), is_its_frame);
    if (found == waiting_.end()) return;
    waiting_bytes_ -= bytes_of(*found);
    waiting_.erase(found);
    ++losses_.at(static_cast<std::size_t>(camera)).total;
}

/// Requires mutex_.
bool OutputQueue::room_for(const Frame& frame) {
    Loss& loss = losses_.at(static_cast<std::size_t>(frame.camera));
    if (!frame.key && (loss.needs_key || loss.waiting)) return false;
    if (loss.waiting) drop_waiting(frame.camera);
    loss.waiting = false;
    return waiting_bytes_ + frame.data.size() <= limit_bytes_;
}

void OutputQueue::push(const FramePointer& frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Loss& loss = losses_.at(static_cast<std::size_t>(frame->camera));
    if (!room_for(*frame)) {
        ++loss.total;
        loss.needs_key = true;
        return;
    }
    loss.needs_key = false;
    loss.waiting = latest_;
    waiting_bytes_ += frame->data.size();
    waiting_.emplace_back(frame);
    wake();
}

void OutputQueue::push(const Event& event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t bytes = bytes_of(event);
    if (waiting_bytes_ + bytes > limit_bytes_ + event_reserve_bytes) {
        ++losses_[0].total;
        return;
    }
    waiting_bytes_ += bytes;
    waiting_.emplace_back(event);
    wake();
}

std::optional<Delivery> OutputQueue::pop(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (waiting_.empty()) {
        const auto longest = linger_.count() > 0 ? std::min(patience, linger_) : patience;
        filled_.wait_for(lock, longest, [this] { return enough() || finished_; });
    }
    if (waiting_.empty()) return std::nullopt;
    Delivery delivery = std::move(waiting_.front());
    waiting_.pop_front();
    waiting_bytes_ -= bytes_of(delivery);
    if (const auto* frame = std::get_if<FramePointer>(&delivery))
        losses_.at(static_cast<std::size_t>((*frame)->camera)).waiting = false;
    return delivery;
}

void OutputQueue::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    filled_.notify_all();
}

bool OutputQueue::finished() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return finished_ && waiting_.empty();
}

std::uint64_t OutputQueue::lost(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return losses_.at(static_cast<std::size_t>(camera)).total;
}

std::uint64_t OutputQueue::lost() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::uint64_t sum = 0;
    for (std::size_t camera = 1; camera < losses_.size(); ++camera)
        sum += losses_[camera].total;
    return sum;
}

}  // namespace plendix
