// Everything behind the page but HTTP: cameras, what is wanted of them, live pictures, events, a recording.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "host/motion_hold.h"
#include "host/session.h"
#include "host/signals.h"
#include "record/advisor.h"
#include "record/recorder.h"
#include "record/screen.h"
#include "serve/camera_board.h"
#include "serve/desk.h"
#include "serve/event_feed.h"
#include "serve/live_hub.h"
#include "serve/metrics.h"
#include "serve/thumbnailer.h"

namespace plendix {

class OutputToFile;
class ServiceNotice;
class WorkingDirectory;

struct HousePlan {
    std::filesystem::path plugin;  // empty: default_plugin()
    std::filesystem::path state;   // for the plug-in's settings and log, and for wishes from the page
    std::vector<CameraSettings> cameras;
    bool records = false;
    std::filesystem::path output;      // of the recording
    std::filesystem::path recordings;  // to be shown where this process records nothing; empty: none
    RecorderRules rules;
    double thumbnail_share = 0.5;  // of one processor
    ScreenOptions screen;
    std::chrono::milliseconds duration{0};  // 0: until SIGINT or SIGTERM
    /// Reads the configuration file again; without one SIGHUP ends the process. Throws UsageError.
    std::function<std::vector<CameraSettings>()> reload;
};

/// One thread makes it and runs it; what it hands out may be used from any until it is gone.
class House {
public:
    /// Takes the folder of the recording, loads the plug-in. Throws Failure.
    explicit House(const HousePlan& plan);
    ~House();
    House(const House&) = delete;
    House& operator=(const House&) = delete;

    /// Opens the plug-in and serves until the signals, or the plan's duration. Throws Failure.
    void run(StopSignals& signals);

    Desk& desk() { return desk_; }
    LiveHub& hub() { return hub_; }
    CameraBoard& board() { return board_; }
    EventFeed& feed() { return feed_; }
    LogBook& log() { return log_; }
    Thumbnailer& thumbnailer() { return thumbnailer_; }
    /// Recordings to be shown; empty where there are none.
    std::filesystem::path recordings() const;
    /// A line for whoever looks at the terminal. Any thread; it is printed soon.
    void say(const std::string& line);

    /// Since the driver's worker called, and what was lost of its documents.
    ProcessNumbers numbers() const;

private:
    using Clock = Session::Clock;

    void loop(StopSignals& signals, OutputToFile& driver_log, ServiceNotice& notice);
    void take(const std::vector<Event>& events, Clock::time_point now);
    void tell(const Event& event);
    void look(Clock::time_point now);
    void reload();
    void save_changes();
    void hand_over(std::int64_t now_ms);
    void switch_off_relays();
    void say_lines();

    const HousePlan plan_;
    Desk desk_;
    LiveHub hub_;
    CameraBoard board_;
    EventFeed feed_;
    LogBook log_;
    Thumbnailer thumbnailer_;
    Screen screen_;
    MotionHold hold_;
    Advisor advisor_;
    OutputQueue queue_;
    Session session_;
    std::optional<Recorder> recorder_;
    std::unique_ptr<WorkingDirectory> inside_;
    std::atomic<Clock::rep> last_call_{Clock::now().time_since_epoch().count()};
    std::atomic<std::uint64_t> lost_documents_{0};
    Clock::time_point next_look_{};
    std::string live_;     // how many cameras are, as looked last
    std::string refusal_;  // of the driver, as far as it was told
    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace plendix
