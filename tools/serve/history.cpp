#include "serve/history.h"

#include <cmath>

#include "host/event_json.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds step{History::step_s};

double per_second(std::uint64_t count, CameraState::Time::duration time) {
    const double seconds = std::chrono::duration<double>(time).count();
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

/// Two decimals: more are noise in a plot and in a diff.
double rounded(double value) {
    return static_cast<double>(std::llround(value * 100)) / 100;
}

}  // namespace

History::Sum History::sum_of(const CameraState& state, CameraState::Time now) {
    return {now, state.frames, state.lost_blocks + state.timeouts};
}

void History::add(const CameraState& state, bool motion, CameraState::Time now) {
    const Sum sum = sum_of(state, now);
    if (!begun_ || sum.frames < begun_->frames) {  // the first look, or another camera in its place
        begun_ = sum;
        recent_.clear();
    }
    ++looks_;
    moving_ += motion ? 1 : 0;
    recent_.push_back(sum);
    while (recent_.size() > 2 && now - recent_[1].time >= step)
        recent_.pop_front();
    rate_ = rounded(per_second(sum.frames - recent_.front().frames, now - recent_.front().time));
    if (now - begun_->time >= step) close(sum);
}

void History::close(const Sum& now) {
    Step& last = done_.emplace_back();
    last.rate = rounded(per_second(now.frames - begun_->frames, now.time - begun_->time));
    last.lost = now.losses - begun_->losses;
    last.motion = rounded(static_cast<double>(moving_) / looks_);
    if (done_.size() > steps) done_.pop_front();
    begun_ = now;
    looks_ = moving_ = 0;
}

nlohmann::ordered_json History::json(CameraState::Time now, std::int64_t now_ms) const {
    const auto open = begun_ ? now - begun_->time : CameraState::Time::duration(0);  // the present step
    const auto end_ms = now_ms - std::chrono::duration_cast<std::chrono::milliseconds>(open).count();
    nlohmann::ordered_json rate = nlohmann::ordered_json::array(), lost = rate, motion = rate;
    for (const Step& each : done_) {
        rate.push_back(each.rate);
        lost.push_back(each.lost);
        motion.push_back(each.motion);
    }
    return {
        {"step_s", step_s}, {"end", utc_text(end_ms)}, {"rate", rate}, {"lost", lost}, {"motion", motion}};
}

}  // namespace plendix
