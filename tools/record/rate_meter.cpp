#include "record/rate_meter.h"

namespace plendix {

static constexpr std::chrono::seconds step{1};
static constexpr std::size_t most_samples = 62;  // a minute, its beginning and the last

/// Sums shrink when a camera is taken out: no rate then, instead of a huge one.
static double growth(std::uint64_t from, std::uint64_t to, double seconds) {
    return to > from && seconds > 0 ? static_cast<double>(to - from) / seconds : 0;
}

void RateMeter::add(const std::vector<CameraState>& cameras, std::uint64_t written, Time now) {
    Sample sample{now, 0, 0, written};
    for (const CameraState& state : cameras) {
        sample.frames += state.frames;
        sample.bytes += state.bytes;
    }
    const std::size_t count = samples_.size();
    if (count >= 2 && samples_[count - 1].time - samples_[count - 2].time < step) samples_.pop_back();
    samples_.push_back(sample);
    if (samples_.size() > most_samples) samples_.pop_front();
}

Rates RateMeter::over(std::chrono::seconds window) const {
    if (samples_.size() < 2) return {};
    const Sample& last = samples_.back();
    const Sample* first = &last;
    for (auto sample = samples_.rbegin(); sample != samples_.rend(); ++sample) {
        first = &*sample;
        if (last.time - sample->time >= window) break;
    }
    const double seconds = std::chrono::duration<double>(last.time - first->time).count();
    return {growth(first->frames, last.frames, seconds), growth(first->bytes, last.bytes, seconds) * 8e-6,
            growth(first->written, last.written, seconds)};
}

}  // namespace plendix
