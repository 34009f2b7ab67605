#include "live/stream.h"

#include <unistd.h>

#include <future>
#include <iostream>
#include <mutex>

#include "ffmpeg.h"
#include "host/diagnosis.h"
#include "host/lossy_output.h"
#include "host/signals.h"
#include "host/words.h"
#include "live/camera_tale.h"
#include "live/live_camera.h"
#include "live/live_stream.h"
#include "live/outlet.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = Session::Clock;
using namespace std::chrono_literals;

constexpr auto longest_wait = 100ms;  // of signals and of a reader that goes away
constexpr auto time_to_measure = 1s;  // a rate
constexpr auto time_to_end = 1s;      // for a reader that does not read

/// What has gone out so far; the thread that streams writes it, the other reads it.
struct Progress {
    PictureFormat format;
    std::uint64_t pictures = 0;
    std::uint64_t bytes = 0;
    std::uint64_t unreadable = 0;
    // Of this format:
    std::uint64_t pictures_before = 0;
    std::int64_t first_ms = 0;  // arrival
    std::int64_t last_ms = 0;

    std::chrono::milliseconds span() const { return std::chrono::milliseconds(last_ms - first_ms); }
    double rate() const {
        return 1000.0 * static_cast<double>(pictures - pictures_before - 1) /
               static_cast<double>(last_ms - first_ms);
    }
};

/// Takes frames on a thread of its own: the reader may be as slow as it likes.
class Pump {
public:
    Pump(StreamFormat format, OutputQueue& frames, Outlet& outlet)
        : stream_(format), frames_(frames), outlet_(outlet) {
        done_ = std::async(std::launch::async, [this] { run(); });
    }

    bool done() const { return done_.wait_for(0s) == std::future_status::ready; }
    /// Waits for its end. Throws what ended it.
    void finish() { done_.get(); }
    Progress progress() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return progress_;
    }

private:
    void run() {
        while (!frames_.finished()) {
            const auto delivery = frames_.pop(1h);
            const auto* frame = delivery ? std::get_if<FramePointer>(&*delivery) : nullptr;
            if (frame != nullptr && !send(**frame)) return;
        }
    }

    bool send(const Frame& frame) {
        const Pieces& pieces = stream_.take(frame);
        const bool sent = outlet_.write(pieces);
        const std::lock_guard<std::mutex> lock(mutex_);
        progress_.unreadable = stream_.unreadable();
        if (pieces.empty() || !sent) return sent;
        if (!(progress_.format == stream_.format())) {
            progress_.format = stream_.format();
            progress_.pictures_before = progress_.pictures;
            progress_.first_ms = frame.arrival_ms;
        }
        for (const Piece& piece : pieces)
            progress_.bytes += piece.size;
        ++progress_.pictures;
        progress_.last_ms = frame.arrival_ms;
        return true;
    }

    LiveStream stream_;
    OutputQueue& frames_;
    Outlet& outlet_;
    mutable std::mutex mutex_;
    Progress progress_;  // guarded by mutex_
    std::future<void> done_;
};

/// Everything between the opening of the plug-in and its end.
class Run {
public:
    Run(const StreamPlan& plan, LiveCamera& camera, Outlet& outlet)
        : plan_(plan), camera_(camera), outlet_(outlet), pump_(plan.format, camera.frames(), outlet) {}

    void go(const StopSignals& signals) {
        try {
            camera_.start();
            loop(signals);
        } catch (...) {
            finish();
            throw;
        }
        finish();
        pump_.finish();
    }

    /// In one line, what the reader got and what it did not.
    void tell_total() {
        const Progress progress = pump_.progress();
        const std::uint64_t lost = camera_.frames().lost(plan_.camera.number);
        std::string line = std::to_string(progress.pictures) +
                           (progress.pictures == 1 ? " picture, " : " pictures, ") +
                           byte_words(progress.bytes);
        if (progress.pictures > 0 && told_.empty()) line += ", " + format_text(progress.format);
        line += "; " + std::to_string(lost) + " lost because the reader was too slow";
        if (progress.unreadable > 0) line += ", " + std::to_string(progress.unreadable) + " unreadable";
        say(line);
    }

private:
    void loop(const StopSignals& signals) {
        CameraTale tale(plan_.timeout, Clock::now());
        while (!signals.requested() && !pump_.done() && !outlet_.reader_gone()) {
            const std::vector<Event> events = camera_.serve(longest_wait);
            const CameraState state = camera_.state();
            const auto now = Clock::now();
            for (const std::string& line : tale.look(events, state, now))
                say(line);
            tale.require_camera(state, now);
            tell_format(state);
            if (plan_.duration.count() > 0 && state.first_frame && now - *state.first_frame >= plan_.duration)
                return;
        }
    }

    /// What comes, once it is known for how long, and again when it is another.
    void tell_format(const CameraState& state) {
        const Progress progress = pump_.progress();
        if (progress.span() < time_to_measure) return;
        const std::string format = format_text(progress.format);
        if (format == told_) return;
        say(title_of(state) + ": " + (told_.empty() ? "" : "now ") + format + ", " +
            fixed(progress.rate(), 1) + " pictures/s, as " + format_name(plan_.format));
        told_ = format;
    }

    void finish() {
        outlet_.end_within(time_to_end);
        camera_.stop();
    }

    static void say(const std::string& line) { std::cerr << "plendix: " << line << std::endl; }

    const StreamPlan& plan_;
    LiveCamera& camera_;
    Outlet& outlet_;
    Pump pump_;
    std::string told_;
};

}  // namespace

int stream(const StreamPlan& plan) {
    av_log_set_level(AV_LOG_ERROR);
    const LossyOutput standard_error(std::cerr, STDERR_FILENO);
    Outlet outlet(STDOUT_FILENO);
    LiveCamera camera(plan.plugin, plan.camera);
    const StopSignals signals;
    Run run(plan, camera, outlet);
    run.go(signals);
    run.tell_total();
    return exit_done;
}

}  // namespace plendix
