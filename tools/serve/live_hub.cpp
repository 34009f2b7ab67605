#include "serve/live_hub.h"

#include <algorithm>
#include <utility>

namespace plendix {
namespace {

// Dealing out takes microseconds: only a machine that stands still lets so much gather.
constexpr std::size_t most_waiting_bytes = 256U << 20U;
constexpr std::int64_t least_stale_ms = 2000;
constexpr std::int64_t longest_interval_ms = 5000;  // then the camera counts as silent

}  // namespace

LiveHub::LiveHub() : thread_([this] { run(); }) {}

LiveHub::~LiveHub() {
    LiveHub::finish();
    thread_.join();
}

/// Puts a picture in the place of one, which the caller lets go of without the lock.
FramePointer LiveHub::replace(FramePointer& place, std::int64_t& interval_ms, const FramePointer& frame) {
    if (place) interval_ms = frame->arrival_ms - place->arrival_ms;
    return std::exchange(place, frame);
}

void LiveHub::push(const FramePointer& frame) {
    FramePointer last, last_key;  // their memory is given back behind the lock
    const std::lock_guard<std::mutex> lock(mutex_);
    Place& here = place(frame->camera);
    last = replace(here.newest, here.interval_ms, frame);
    if (frame->key) last_key = replace(here.newest_key, here.key_interval_ms, frame);
    if (here.viewers.empty() || (here.gap && !frame->key)) return;
    here.gap = waiting_bytes_ > most_waiting_bytes;
    if (here.gap) return;
    waiting_bytes_ += frame->data.size();
    waiting_.push_back(frame);
    if (waiting_.size() == 1) filled_.notify_one();
}

void LiveHub::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
    filled_.notify_one();
}

FramePointer LiveHub::newest(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return place(camera).newest;
}

FramePointer LiveHub::newest_key(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return place(camera).newest_key;
}

LiveHub::Sight LiveHub::sight(int camera, std::int64_t now_ms) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const Place& here = place(camera);
    if (!here.newest_key) return {};
    const std::int64_t age_ms = now_ms - here.newest_key->arrival_ms;
    const bool live = now_ms - here.newest->arrival_ms <=
                      std::clamp(2 * here.interval_ms, least_stale_ms, longest_interval_ms);
    const std::int64_t key_limit_ms =
        here.key_interval_ms > 0 ? 2 * here.key_interval_ms : longest_interval_ms;
    const bool fresh = age_ms <= std::max(key_limit_ms, least_stale_ms);
    return {live && fresh ? here.newest_key : nullptr, age_ms};
}

/// A camera that sends nothing drops nobody either: who has gone is looked for here, too.
void LiveHub::follow(int camera, const std::shared_ptr<Viewer>& viewer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto& viewers = place(camera).viewers;
    viewers.erase(
        std::remove_if(viewers.begin(), viewers.end(), [](const auto& other) { return other.expired(); }),
        viewers.end());
    viewers.push_back(viewer);
}

std::size_t LiveHub::viewers(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto& viewers = place(camera).viewers;
    return static_cast<std::size_t>(
        std::count_if(viewers.begin(), viewers.end(), [](const auto& viewer) { return !viewer.expired(); }));
}

void LiveHub::run() {
    for (;;) {
        std::deque<FramePointer> frames;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            filled_.wait(lock, [this] { return finished_ || !waiting_.empty(); });
            if (waiting_.empty()) return;
            frames.swap(waiting_);
            waiting_bytes_ = 0;
        }
        for (const FramePointer& frame : frames)
            deal_out(frame);
    }
}

/// Viewers are woken without the lock: the plug-in's thread does not wait for them.
void LiveHub::deal_out(const FramePointer& frame) {
    std::vector<std::shared_ptr<Viewer>> watching;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        auto& viewers = place(frame->camera).viewers;
        watching.reserve(viewers.size());
        for (const auto& viewer : viewers)
            if (auto here = viewer.lock()) watching.push_back(std::move(here));
        if (watching.size() < viewers.size()) viewers.assign(watching.begin(), watching.end());
    }
    for (const auto& viewer : watching)
        ++(viewer->offer(frame) ? given_ : lost_);
}

}  // namespace plendix
