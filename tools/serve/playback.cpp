#include "serve/playback.h"

#include <algorithm>
#include <utility>

#include "host/clocks.h"
#include "serve/recorded_frames.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = EndBell::Clock;
using std::chrono::milliseconds;

constexpr std::int64_t a_day_ms = 86'400'000;
constexpr std::int64_t a_century_ms = 36'525 * a_day_ms;
constexpr milliseconds longest_sleep{200};  // until a viewer who is gone is missed
constexpr milliseconds room_period{5};      // how often it is looked whether a viewer has taken one
constexpr std::int64_t longest_gap_ms = 1000;
constexpr std::size_t most_ahead = 2;  // pictures that wait for a viewer: none is lost to him

/// One playing, on its thread.
class Player {
public:
    Player(EndBell& bell, std::shared_ptr<const RecordingIndex> index, int camera, std::int64_t from_ms,
           double speed, const std::shared_ptr<Viewer>& viewer)
        : bell_(bell),
          index_(std::move(index)),
          camera_(camera),
          at_ms_(from_ms),
          speed_(speed),
          viewer_(viewer) {}

    void run() {
        while (!viewer_.expired() && !bell_.rung()) {
            auto segments = index_->segments(camera_, at_ms_, at_ms_ + a_day_ms, 1);
            if (segments.empty())  // for longer than a day: all folders are looked through
                segments = index_->segments(camera_, at_ms_, at_ms_ + a_century_ms, 1);
            if (segments.empty() || !play(segments.front())) break;
            at_ms_ = std::max(at_ms_ + 1, segments.front().end_ms);
        }
        if (const auto viewer = viewer_.lock()) viewer->finish();
    }

private:
    bool play(const RecordedSegment& segment) {
        try {
            RecordedFrames frames(segment.file, camera_, at_ms_ - segment.begin_ms);
            while (const auto frame = frames.next())
                if (!passed_over(segment, *frame) && !show(frame)) return false;
        } catch (const Failure&) {
            return true;  // what follows may be whole
        }
        return true;
    }

    /// A segment that grows is opened again at a key frame, which was shown with what follows it; of another
    /// segment, which may overlap, nothing can be decoded before its next key frame.
    bool passed_over(const RecordedSegment& segment, const Frame& frame) {
        if (!begun_ && frame.codec == FrameCodec::jpeg && frame.time_ms < at_ms_) return true;  // not needed
        const bool known = begun_ && frame.time_ms <= last_ms_;
        if (known && segment.file != file_) needs_key_ = true;
        if (known || (needs_key_ && !frame.key)) return true;
        needs_key_ = false;
        file_ = segment.file;
        return false;
    }

    bool sleep_until(Clock::time_point time) const {
        return !bell_.sleep_until(std::min(time, Clock::now() + longest_sleep)) && !viewer_.expired();
    }

    /// False when nobody looks any more.
    bool wait_for_room() {
        for (bool waited = false;; waited = true) {
            {
                const auto viewer = viewer_.lock();
                if (!viewer) return false;
                if (viewer->waiting() < most_ahead) {
                    if (waited) due_ = std::max(due_, Clock::now());  // nothing is made up for
                    return true;
                }
            }
            if (!sleep_until(Clock::now() + room_period)) return false;
        }
    }

    /// At its time; a long gap passes quickly, and what only leads to the first picture at once. False when
    /// nobody looks any more.
    bool show(const std::shared_ptr<Frame>& frame) {
        const std::int64_t gap_ms = std::clamp<std::int64_t>(frame->time_ms - last_ms_, 0, longest_gap_ms);
        last_ms_ = frame->time_ms;
        if (begun_ && frame->time_ms >= at_ms_)
            due_ += std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double, std::milli>(static_cast<double>(gap_ms) / speed_));
        if (!begun_) due_ = Clock::now();
        begun_ = true;
        while (Clock::now() < due_)
            if (!sleep_until(due_)) return false;
        if (!wait_for_room()) return false;
        const auto viewer = viewer_.lock();
        if (!viewer) return false;
        frame->arrival_ms = milliseconds_of(Clock::now());
        viewer->offer(frame);
        return true;
    }

    EndBell& bell_;
    const std::shared_ptr<const RecordingIndex> index_;
    const int camera_;
    std::int64_t at_ms_;  // UTC: from here on
    const double speed_;
    const std::weak_ptr<Viewer> viewer_;
    Clock::time_point due_{};
    std::int64_t last_ms_ = 0;
    bool begun_ = false;
    bool needs_key_ = false;
    std::filesystem::path file_;  // of the last picture
};

}  // namespace

void EndBell::ring() {
    const std::lock_guard<std::mutex> lock(mutex_);
    rung_ = true;
    woken_.notify_all();
}

bool EndBell::sleep_until(Clock::time_point time) {
    std::unique_lock<std::mutex> lock(mutex_);
    return woken_.wait_until(lock, time, [this] { return rung_.load(); });
}

Playbacks::~Playbacks() {
    end();
}

bool Playbacks::play(const std::shared_ptr<const RecordingIndex>& index, int camera, std::int64_t from_ms,
                     double speed, const std::shared_ptr<Viewer>& viewer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    running_.remove_if([](Running& one) {
        if (one.done) one.thread.join();
        return !one.thread.joinable();
    });
    if (bell_.rung() || running_.size() >= most) return false;
    Running& one = running_.emplace_back();
    one.thread = std::thread([&one, player = Player(bell_, index, camera, from_ms, speed, viewer)]() mutable {
        player.run();
        one.done = true;
    });
    return true;
}

void Playbacks::end() {
    bell_.ring();
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Running& one : running_)
        one.thread.join();
    running_.clear();
}

}  // namespace plendix
