#include "serve/house.h"

#include <unistd.h>

#include <fstream>
#include <iostream>

#include "host/clocks.h"
#include "host/process_state.h"
#include "host/service_notice.h"
#include "host/still_file.h"
#include "usage.h"

namespace plendix {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

constexpr std::size_t queue_bytes = 128U << 20U;  // as a recording's
constexpr auto queue_linger = 50ms;
constexpr auto longest_wait = 50ms;  // wishes and signals wait no longer
constexpr auto look_period = 250ms;
constexpr std::size_t most_lines = 100;  // of other threads, until they are printed
constexpr auto log_period = 10s;
constexpr auto longest_farewell = 1000ms;
constexpr milliseconds time_to_end{8000};  // a service is killed after ten seconds

/// Numbers of events of an earlier life of the process are smaller: a page that knows one has missed some.
std::uint64_t first_event_id() {
    constexpr std::uint64_t per_millisecond = 16;
    return static_cast<std::uint64_t>(utc_ms()) * per_millisecond;
}

constexpr const char* changes_file = "page-settings.json";

/// Nothing where there is no such file, or it is damaged: then the cameras are as configured.
nlohmann::json read_changes(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return stream ? nlohmann::json::parse(stream, nullptr, false) : nlohmann::json();
}

}  // namespace

House::House(const HousePlan& plan)
    : plan_(plan),
      desk_(plan.cameras, read_changes(plan.state / changes_file)),
      board_(desk_, hub_, plan.records),
      feed_(first_event_id()),
      thumbnailer_(hub_, plan.thumbnail_share),
      screen_(std::cerr, plan.screen),
      hold_(plan.screen.motion_hold),
      queue_(queue_bytes, queue_linger),
      session_(plan.plugin, desk_.wanted()) {
    if (plan_.records) recorder_.emplace(queue_, plan_.output, plan_.rules);
    inside_ = std::make_unique<WorkingDirectory>(plan_.state);
    session_.attach(hub_);
    if (recorder_) session_.attach(queue_);
    session_.keep_reports();
    const auto now = Clock::now();
    board_.update(session_.states(), {}, now);  // before anybody asks
}

House::~House() = default;

std::filesystem::path House::recordings() const {
    return recorder_ ? recorder_->root() : plan_.recordings;
}

void House::say(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lines_.size() < most_lines) lines_.push_back(line);
}

void House::say_lines() {
    std::vector<std::string> lines;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines.swap(lines_);
    }
    for (const std::string& line : lines)
        screen_.say(line);
}

ProcessNumbers House::numbers() const {
    ProcessNumbers numbers;
    const Clock::time_point last{Clock::duration(last_call_)};
    numbers.seconds_since_call = std::chrono::duration<double>(Clock::now() - last).count();
    numbers.lost_documents = lost_documents_;
    numbers.thumbnails = thumbnailer_.made();
    numbers.thumbnail_seconds = thumbnailer_.seconds();
    if (recorder_) numbers.recording = recorder_->numbers();
    return numbers;
}

void House::run(StopSignals& signals) {
    OutputToFile driver_log(plan_.state / "driver.log");
    ServiceNotice notice;
    if (recorder_) recorder_->start();
    session_.start();
    notice.ready("serving");
    loop(signals, driver_log, notice);
    notice.stopping();
    switch_off_relays();
    take(session_.stop(), Clock::now());
    if (recorder_ && !recorder_->stop(time_to_end)) {
        std::cerr << "plendix: the disk of '" << recorder_->root().string() << "' does not answer\n";
        _exit(exit_failed);  // the thread that waits for it cannot be ended
    }
    screen_.finish();
}

void House::loop(StopSignals& signals, OutputToFile& driver_log, ServiceNotice& notice) {
    const auto start = Clock::now();
    auto next_check = start + log_period;
    while (!signals.requested()) {
        const auto now = Clock::now();
        if (plan_.duration.count() > 0 && now - start >= plan_.duration) return;
        take(session_.serve(longest_wait), now);
        hand_over(milliseconds_of(now));
        if (signals.take_reload()) reload();
        save_changes();
        say_lines();
        if (now >= next_look_) look(now);
        notice.status(live_);
        const Clock::rep called = session_.last_call().time_since_epoch().count();
        notice.alive_if(called > last_call_, now);
        if (called > last_call_) last_call_ = called;
        if (now < next_check) continue;
        driver_log.rotate_if_large();
        inside_->enter();
        next_check = now + log_period;
    }
    screen_.say("stopping");
}

/// What the driver has no room for is handed over again, and cameras go on as they are.
void House::hand_over(std::int64_t now_ms) {
    std::string refusal;
    try {
        desk_.work(session_, now_ms);
    } catch (const Failure& failure) {
        refusal = failure.what();
    }
    if (refusal != refusal_ && !refusal.empty()) screen_.say(refusal);
    refusal_ = refusal;
}

/// Those that are on for a while: nobody else would. Ends when the driver has told so.
void House::switch_off_relays() {
    auto open = desk_.end_relays(session_);
    for (const auto end = Clock::now() + longest_farewell; !open.empty() && Clock::now() < end;) {
        const auto events = session_.serve(longest_wait);
        take(events, Clock::now());
        for (const Event& event : events)
            if (event.kind == EventKind::relay) open.erase(event.camera);
    }
}

void House::take(const std::vector<Event>& events, Clock::time_point now) {
    for (const Event& event : events) {
        screen_.event(event, now);
        for (const Event& held : hold_.take(event, now))
            tell(held);
    }
    for (const Event& held : hold_.due(now))
        tell(held);
    if (!recorder_) return;
    for (const Event& event : recorder_->take_events()) {
        screen_.event(event, now);
        tell(event);
    }
}

void House::tell(const Event& event) {
    board_.note(event);
    if (event.kind == EventKind::log) log_.add(event);
    feed_.add(event);
}

/// What costs the more the more cameras there are.
void House::look(Clock::time_point now) {
    next_look_ = now + look_period;
    const auto cameras = session_.states();
    live_ = live_of(cameras);
    board_.update(cameras, session_.reports(), now);
    desk_.learn(cameras, session_.reports(), milliseconds_of(now));
    for (const Event& event : advisor_.advise(cameras, now)) {
        screen_.event(event, now);
        tell(event);
    }
    screen_.update(cameras, recorder_ ? recorder_->numbers() : RecorderNumbers(), now);
    session_.ask_for_life();
    lost_documents_ = session_.lost_documents();
    if (feed_.followed()) feed_.stir();
}

/// Beside it and then in its place: a crash leaves the one or the other.
void House::save_changes() {
    const nlohmann::ordered_json changes = desk_.take_changes();
    if (changes.is_null()) return;
    const std::filesystem::path file = plan_.state / changes_file;
    try {
        const std::string text = changes.dump(2) + '\n';
        write_whole_file(file, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    } catch (const std::exception& error) {
        screen_.say(std::string("settings from the page are lost at the next start: ") + error.what());
    }
}

void House::reload() {
    try {
        desk_.replace(plan_.reload());
        hand_over(milliseconds_of(Clock::now()));
        look(Clock::now());
        screen_.say("configuration read again");
    } catch (const std::exception& error) {
        screen_.say(std::string("configuration not changed: ") + error.what());
    }
}

}  // namespace plendix
