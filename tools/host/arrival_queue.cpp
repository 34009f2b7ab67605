#include "host/arrival_queue.h"

#include <utility>

#include "plugin/host_records.h"

namespace plendix {
namespace {

constexpr std::size_t document_reserve_bytes = 8U << 20U;

std::int64_t now_ms() {
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count();
}

Arrival copy_of(const _EventParmsIn& event) {
    Arrival arrival;
    arrival.kind = event.Kind;
    arrival.data_type = event.DataType;
    arrival.time_ms = now_ms();
    if (event.Kind == EventKindVideo) {
        arrival.camera = static_cast<int>((event.SourceId >> 8U) & 0xFFU);
        arrival.time_ms = std::int64_t{event.FrameSeconds} * 1000 + event.FrameMilliseconds;
        arrival.key = event.FrameType == FrameTypeKey;
        arrival.recording = (event.FrameFlags & FrameFlagRecording) != 0;
    }
    if (event.Data != nullptr) {
        const auto* bytes = static_cast<const std::uint8_t*>(event.Data);
        arrival.data.assign(bytes, bytes + event.DataLength);
    }
    return arrival;
}

}  // namespace

ArrivalQueue::ArrivalQueue(std::size_t limit_bytes) : limit_bytes_(limit_bytes) {}

bool ArrivalQueue::push(const _EventParmsIn& event) {
    Arrival arrival = copy_of(event);
    const bool frame = event.Kind == EventKindVideo;
    const std::size_t limit = frame ? limit_bytes_ : limit_bytes_ + document_reserve_bytes;
    const std::lock_guard<std::mutex> lock(mutex_);
    Refusals& refusals = refusals_[static_cast<std::size_t>(arrival.camera)];
    if (waiting_bytes_ + arrival.data.size() > limit) {
        ++refusals.total;
        refusals.since_last = true;
        return false;
    }
    arrival.after_gap = std::exchange(refusals.since_last, false);
    waiting_bytes_ += arrival.data.size();
    waiting_.push_back(std::move(arrival));
    filled_.notify_one();
    return true;
}

std::optional<Arrival> ArrivalQueue::pop(std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!filled_.wait_for(lock, patience, [this] { return !waiting_.empty(); })) return std::nullopt;
    Arrival arrival = std::move(waiting_.front());
    waiting_.pop_front();
    waiting_bytes_ -= arrival.data.size();
    return arrival;
}

std::uint64_t ArrivalQueue::refused(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return refusals_.at(static_cast<std::size_t>(camera)).total;
}

}  // namespace plendix
