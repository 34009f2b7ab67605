#include "serve/playback.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "host/clocks.h"
#include "serve/recorded_frames.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int most_played = 16;
constexpr std::int64_t a_day_ms = 86'400'000;
constexpr milliseconds longest_sleep{200};  // until a viewer who is gone is missed
constexpr std::int64_t longest_gap_ms = 1000;

std::atomic<int> played{0};

/// One playing, on its thread.
class Player {
public:
    Player(std::shared_ptr<const RecordingIndex> index, int camera, std::int64_t from_ms, double speed,
           const std::shared_ptr<Viewer>& viewer)
        : index_(std::move(index)), camera_(camera), at_ms_(from_ms), speed_(speed), viewer_(viewer) {}

    void run() {
        while (!viewer_.expired()) {
            const auto segments = index_->segments(camera_, at_ms_, at_ms_ + a_day_ms);
            if (segments.empty()) break;
            if (!play(segments.front())) break;
            at_ms_ = std::max(at_ms_ + 1, segments.front().end_ms);
        }
        if (const auto viewer = viewer_.lock()) viewer->finish();
    }

private:
    bool play(const RecordedSegment& segment) {
        try {
            RecordedFrames frames(segment.file, camera_, at_ms_ - segment.begin_ms);
            while (const auto frame = frames.next())
                if (!show(frame)) return false;
        } catch (const Failure&) {
            return true;  // what follows may be whole
        }
        return true;
    }

    /// At its time; a long gap passes quickly. False when nobody looks any more.
    bool show(const std::shared_ptr<Frame>& frame) {
        const std::int64_t gap_ms = std::clamp<std::int64_t>(frame->time_ms - last_ms_, 0, longest_gap_ms);
        last_ms_ = frame->time_ms;
        if (begun_ && frame->time_ms >= at_ms_)
            due_ += std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double, std::milli>(static_cast<double>(gap_ms) / speed_));
        if (!begun_) due_ = Clock::now();
        begun_ = true;
        while (Clock::now() < due_) {
            if (viewer_.expired()) return false;
            std::this_thread::sleep_for(std::min<Clock::duration>(due_ - Clock::now(), longest_sleep));
        }
        const auto viewer = viewer_.lock();
        if (!viewer) return false;
        frame->arrival_ms = milliseconds_of(Clock::now());
        viewer->offer(frame);
        return true;
    }

    const std::shared_ptr<const RecordingIndex> index_;
    const int camera_;
    std::int64_t at_ms_;  // UTC: from here on
    const double speed_;
    const std::weak_ptr<Viewer> viewer_;
    Clock::time_point due_{};
    std::int64_t last_ms_ = 0;
    bool begun_ = false;
};

}  // namespace

bool play_recording(const std::shared_ptr<const RecordingIndex>& index, int camera, std::int64_t from_ms,
                    double speed, const std::shared_ptr<Viewer>& viewer) {
    if (++played > most_played) {
        --played;
        return false;
    }
    std::thread([player = Player(index, camera, from_ms, speed, viewer)]() mutable {
        player.run();
        --played;
    }).detach();
    return true;
}

}  // namespace plendix
