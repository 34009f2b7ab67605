#include "host/frame_pool.h"

#include <algorithm>
#include <utility>

#include "plugin/host_records.h"

namespace plendix {
namespace {

constexpr std::size_t most_idle = 64;  // frames; what a burst leaves beyond them goes back to the system

MotionZones zones_of(const _EventParmsIn& event) {
    MotionZones zones{};
    const std::size_t used = std::min<std::size_t>(event.MotionLength, sizeof(event.MotionMap));
    for (std::size_t row = 0; row < zones.size() && 3 * row < used; ++row)
        zones[row] = event.MotionMap[3 * row];
    return zones;
}

}  // namespace

std::shared_ptr<Frame> FramePool::copy(const _EventParmsIn& event) {
    if (event.DataType != DataTypeJpeg && event.DataType != DataTypeH264) return nullptr;
    std::unique_ptr<Frame> frame = take();
    frame->camera = static_cast<int>((event.SourceId >> 8U) & 0xFFU);
    frame->codec = event.DataType == DataTypeH264 ? FrameCodec::h264 : FrameCodec::jpeg;
    frame->key = event.FrameType == FrameTypeKey;
    frame->motion = (event.FrameFlags & FrameFlagMotion) != 0;
    frame->recording = (event.FrameFlags & FrameFlagRecording) != 0;
    frame->zones = zones_of(event);
    frame->time_ms = std::int64_t{event.FrameSeconds} * 1000 + event.FrameMilliseconds;
    const auto* bytes = static_cast<const std::uint8_t*>(event.Data);
    frame->data.assign(bytes, bytes + event.DataLength);
    return {frame.release(),
            [pool = shared_from_this()](Frame* last) { pool->give_back(std::unique_ptr<Frame>(last)); }};
}

std::unique_ptr<Frame> FramePool::take() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.empty()) return std::make_unique<Frame>();
    std::unique_ptr<Frame> frame = std::move(idle_.back());
    idle_.pop_back();
    return frame;
}

void FramePool::give_back(std::unique_ptr<Frame> frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.size() < most_idle) idle_.push_back(std::move(frame));
}

}  // namespace plendix
