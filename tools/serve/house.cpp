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
constexpr auto log_period = 10s;
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
}

House::~House() = default;

std::filesystem::path House::recordings() const {
    return recorder_ ? recorder_->root() : std::filesystem::path();
}

ProcessNumbers House::numbers() const {
    ProcessNumbers numbers;
    const Clock::time_point last{Clock::duration(last_call_)};
    numbers.seconds_since_call = std::chrono::duration<double>(Clock::now() - last).count();
    numbers.lost_documents = lost_documents_;
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
        desk_.work(session_, milliseconds_of(now));
        if (signals.take_reload()) reload();
        save_changes();
        if (now >= next_look_) look(now);
        notice.alive_if(session_.last_call().time_since_epoch().count() > last_call_, now);
        last_call_ = session_.last_call().time_since_epoch().count();
        if (now < next_check) continue;
        driver_log.rotate_if_large();
        inside_->enter();
        next_check = now + log_period;
    }
    screen_.say("stopping");
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
        screen_.say("configuration read again");
    } catch (const std::exception& error) {
        screen_.say(std::string("configuration not changed: ") + error.what());
    }
}

}  // namespace plendix
