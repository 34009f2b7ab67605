#include "record/recording.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <map>
#include <optional>

#include "ffmpeg.h"
#include "host/lossy_output.h"
#include "host/process_state.h"
#include "host/service_notice.h"
#include "host/session.h"
#include "host/signals.h"
#include "record/advisor.h"
#include "record/conclusion.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = Session::Clock;
using namespace std::chrono_literals;

constexpr std::size_t queue_bytes = 128U << 20U;  // about two seconds of eight large JPEG cameras
constexpr auto queue_linger = 50ms;               // frames that a killed process takes with it
constexpr auto longest_wait = 50ms;               // signals and the screen wait no longer
constexpr auto look_period = 250ms;               // at all cameras
constexpr auto time_to_end = 8s;                  // a service is killed after ten
constexpr auto log_period = 10s;
constexpr auto loss_period = 1min;

/// "1 camera added, 2 changed"
std::string difference(const std::vector<CameraSettings>& before, const std::vector<CameraSettings>& after) {
    std::map<int, const CameraSettings*> left;
    for (const CameraSettings& camera : before)
        left[camera.number] = &camera;
    std::size_t added = 0, changed = 0;
    for (const CameraSettings& camera : after) {
        const auto known = left.find(camera.number);
        if (known == left.end()) {
            ++added;
            continue;
        }
        if (!(*known->second == camera)) ++changed;
        left.erase(known);
    }
    if (added + changed + left.size() == 0) return "no camera is another";
    return "cameras: " + std::to_string(added) + " added, " + std::to_string(changed) + " changed, " +
           std::to_string(left.size()) + " removed";
}

/// Everything between the opening of the plug-in and its end.
class Run {
public:
    Run(const RecordingPlan& plan, Session& session, Recorder& recorder, Screen& screen,
        const WorkingDirectory& inside, StopSignals& signals)
        : plan_(plan),
          session_(session),
          recorder_(recorder),
          screen_(screen),
          inside_(inside),
          signals_(signals) {}

    /// Nothing when the disk did not answer at the end.
    std::optional<Ending> go(OutputToFile& driver_log) {
        recorder_.start();
        session_.start();
        start_ = Clock::now();
        notice_.ready("starting");
        try {
            loop(driver_log);
        } catch (...) {
            finish();
            throw;
        }
        return finish();
    }

private:
    void loop(OutputToFile& driver_log) {
        auto step = plan_.steps.begin();
        auto next_check = start_ + log_period;
        while (!signals_.requested()) {
            const auto now = Clock::now();
            for (; step != plan_.steps.end() && start_ + step->at <= now; ++step)
                step->action(session_);
            if (plan_.duration.count() > 0 && now - start_ >= plan_.duration) return;
            show(session_.serve(longest_wait), now);
            if (signals_.take_reload()) reload();
            if (now >= next_look_) look(now);
            if (now < next_check || !recorder_.numbers().there) continue;
            driver_log.rotate_if_large();
            inside_.enter();
            next_check = now + log_period;
        }
        screen_.say("stopping");
    }

    void show(const std::vector<Event>& events, Clock::time_point now) {
        for (const Event& event : events)
            screen_.event(event, now);
        for (const Event& event : recorder_.take_events())
            screen_.event(event, now);
    }

    /// What costs the more the more cameras there are.
    void look(Clock::time_point now) {
        next_look_ = now + look_period;
        const auto cameras = session_.states();
        for (const Event& event : advisor_.advise(cameras, now))
            screen_.event(event, now);
        if (plan_.screen.terminal) {
            const ScreenOptions terminal = screen_options(STDERR_FILENO);
            screen_.resize(terminal.width, terminal.height);
        }
        screen_.update(cameras, recorder_.numbers(), now);
        keep_alive(cameras, now);
        if (now >= next_loss_) tell_of_lost_documents(now);
    }

    void tell_of_lost_documents(Clock::time_point now) {
        next_loss_ = now + loss_period;
        const std::uint64_t lost = session_.lost_documents();
        if (lost > lost_told_)
            screen_.say(std::to_string(lost - lost_told_) +
                        " documents of the driver were lost: they were not read in time");
        lost_told_ = lost;
    }

    void keep_alive(const std::vector<CameraState>& cameras, Clock::time_point now) {
        session_.ask_for_life();
        notice_.alive_if(session_.last_call() > last_call_, now);
        last_call_ = session_.last_call();
        notice_.status(live_of(cameras));
    }

    void reload() {
        notice_.reloading();
        try {
            const std::vector<CameraSettings> cameras = plan_.reload();
            session_.change(cameras);
            screen_.say("configuration read again: " + difference(cameras_, cameras));
            cameras_ = cameras;
        } catch (const std::exception& error) {
            screen_.say(std::string("configuration not changed: ") + error.what());
        }
        notice_.reloaded();
    }

    std::optional<Ending> finish() {
        const Ending ending{signals_.count(), Clock::now() + time_to_end};
        notice_.stopping();
        show(session_.stop(), Clock::now());
        const auto patience = std::chrono::duration_cast<milliseconds>(ending.deadline - Clock::now());
        const bool kept = recorder_.stop(std::max(patience, milliseconds(0)));
        show({}, Clock::now());
        look(Clock::now());
        screen_.finish();
        return kept ? std::optional(ending) : std::nullopt;
    }

    const RecordingPlan& plan_;
    Session& session_;
    Recorder& recorder_;
    Screen& screen_;
    const WorkingDirectory& inside_;
    StopSignals& signals_;
    ServiceNotice notice_;
    Advisor advisor_;
    Clock::time_point start_;
    Clock::time_point next_look_;
    Clock::time_point last_call_;
    Clock::time_point next_loss_;
    std::uint64_t lost_told_ = 0;  // documents
    std::vector<CameraSettings> cameras_ = plan_.cameras;
};

}  // namespace

int record(const RecordingPlan& plan) {
    av_log_set_level(AV_LOG_ERROR);
    const LossyOutput standard_error(std::cerr, STDERR_FILENO);
    OutputQueue queue(queue_bytes, queue_linger);
    Session session(plan.plugin, plan.cameras);
    Recorder recorder(queue, plan.output, plan.rules);
    const std::filesystem::path state =
        plan.state.empty() ? recorder.root() : std::filesystem::absolute(plan.state);
    const WorkingDirectory inside(state);
    session.attach(queue);
    Screen screen(std::cerr, plan.screen);
    StopSignals signals(StopSignals::Again::counts,
                        plan.reload ? StopSignals::HangUp::reloads : StopSignals::HangUp::stops);
    std::optional<Ending> ending;
    {
        OutputToFile driver_log(state / "driver.log");
        ending = Run(plan, session, recorder, screen, inside, signals).go(driver_log);
    }
    if (!ending) {
        std::cerr << "plendix: the disk of '" << recorder.root().string() << "' does not answer\n";
        _exit(exit_failed);  // the thread that waits for it cannot be ended
    }
    return conclude(plan, session.states(), recorder, queue, signals, *ending);
}

}  // namespace plendix
