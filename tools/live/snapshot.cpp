#include "live/snapshot.h"

#include <unistd.h>

#include <iostream>
#include <optional>
#include <utility>

#include "ffmpeg.h"
#include "host/jpeg_check.h"
#include "host/lossy_output.h"
#include "host/signals.h"
#include "host/still_file.h"
#include "host/still_image.h"
#include "host/words.h"
#include "live/camera_tale.h"
#include "live/live_camera.h"
#include "live/outlet.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using Clock = Session::Clock;
using std::chrono::milliseconds;

constexpr milliseconds longest_wait{20};
constexpr milliseconds time_to_end{1000};  // for a reader that does not read
constexpr int rate_between = 2;            // pictures a second while it waits for the next moment

bool to_output(const SnapshotPlan& plan) {
    return plan.output == "-";
}

StillFormat still_format(const SnapshotPlan& plan) {
    return to_output(plan) ? StillFormat::jpeg : still_format_of(plan.output);
}

/// Nothing where the frame cannot be decoded, or is not one to start with.
std::optional<Bytes> still_of(const Frame& frame, StillFormat format) {
    if (!frame.key) return std::nullopt;
    if (frame.codec == FrameCodec::jpeg && format == StillFormat::jpeg) {
        if (!jpeg_complaint(frame.data.data(), frame.data.size()).empty()) return std::nullopt;
        return frame.data;
    }
    const auto picture = decode_still(frame.codec, frame.data);
    if (!picture) return std::nullopt;
    return encode_still(*picture, format);
}

class Snapshots {
public:
    /// `shown`: the file as it was given.
    Snapshots(const SnapshotPlan& plan, fs::path shown, LiveCamera& camera, Outlet& outlet)
        : plan_(plan),
          shown_(std::move(shown)),
          camera_(camera),
          outlet_(outlet),
          format_(still_format(plan)) {}

    /// Until all are taken, somebody asks to stop or the reader has gone.
    void take(const StopSignals& signals) {
        outlet_.end_when([&signals] { return signals.requested(); }, time_to_end);
        CameraTale tale(plan_.timeout, start_);
        while (!signals.requested() && !done_) {
            const auto delivery = camera_.frames().pop(longest_wait);
            const auto* frame = delivery ? std::get_if<FramePointer>(&*delivery) : nullptr;
            if (frame != nullptr) offer(**frame);
            const std::vector<Event> events = camera_.serve(milliseconds(0));
            const CameraState state = camera_.state();
            for (const std::string& line : tale.look(events, state, Clock::now()))
                say(line);
            if (taken_ == 0) tale.require_camera(state, Clock::now());
        }
    }
    std::uint64_t taken() const { return taken_; }

private:
    void offer(const Frame& frame) {
        if (done_ || Clock::now() < due_) return;
        const auto still = still_of(frame, format_);
        if (!still) return;
        if (!deliver(*still, frame.time_ms)) return;
        ++taken_;
        done_ = plan_.every.count() == 0 || taken_ == plan_.count;
        if (taken_ == 1) due_ = Clock::now();
        while (!done_ && due_ <= Clock::now())
            due_ += plan_.every;
    }

    bool deliver(const Bytes& still, std::int64_t time_ms) {
        const Piece content{still.data(), still.size()};
        if (to_output(plan_)) {
            done_ = !outlet_.write({content});
            return !done_;
        }
        const fs::path file = plan_.every.count() > 0 ? timed_name(plan_.output, time_ms) : plan_.output;
        write_whole_file(file, content);
        say((shown_.parent_path() / file.filename()).string() + ": " + byte_words(still.size()));
        return true;
    }

    static void say(const std::string& line) { std::cerr << "plendix: " << line << std::endl; }

    const SnapshotPlan& plan_;
    const fs::path shown_;
    LiveCamera& camera_;
    Outlet& outlet_;
    const StillFormat format_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point due_{};
    std::uint64_t taken_ = 0;
    bool done_ = false;
};

}  // namespace

int take_snapshots(const SnapshotPlan& wish) {
    av_log_set_level(AV_LOG_FATAL);  // of a picture that does not decode the next one is taken
    const LossyOutput standard_error(std::cerr, STDERR_FILENO);
    SnapshotPlan plan = wish;
    still_format(plan);
    if (!to_output(plan)) {
        require_writable(plan.output);
        plan.output = fs::absolute(plan.output);  // the current directory will be another
    }
    if (plan.every.count() > 0) plan.camera.rate = rate_between;
    Outlet outlet(STDOUT_FILENO);
    LiveCamera camera(plan.plugin, plan.camera);
    const StopSignals signals;
    Snapshots snapshots(plan, wish.output, camera, outlet);
    camera.start();
    snapshots.take(signals);
    return snapshots.taken() > 0 ? exit_done : exit_failed;
}

}  // namespace plendix
