// What an operator sees: of fifty restless cameras, of troubles, and of addresses where no camera is.
#include "record/screen.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <future>
#include <random>
#include <regex>
#include <sstream>

#include "host/diagnosis.h"
#include "host/event_log.h"
#include "host/plain_text.h"
#include "record/report.h"
#include "support/camera_bench.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Time = CameraState::Time;

constexpr std::int64_t noon_ms = 1'795'348'800'000;

Event motion(int camera, bool active, std::int64_t time_ms) {
    return {time_ms, camera, EventKind::motion, {{"active", active}}};
}

Event lost(int camera, int block, std::int64_t time_ms) {
    Event event{time_ms, camera, EventKind::log, {{"level", 50}, {"lost_block", block}, {"of", 9}}};
    event.values["text"] =
        "Camera " + std::to_string(camera) + " - did not receive block " + std::to_string(block) + " of 9";
    return event;
}

Event state(int camera, const std::string& word, std::int64_t time_ms) {
    return {time_ms, camera, EventKind::state, {{"state", word}}};
}

std::vector<CameraState> live_cameras(int count, Time began) {
    std::vector<CameraState> cameras(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        CameraState& camera = cameras[static_cast<std::size_t>(i)];
        camera.number = i + 1;
        camera.name = "Camera " + std::to_string(i + 1);
        camera.address = "10.0.0." + std::to_string(i + 1);
        camera.condition = CameraCondition::live;
        camera.since = camera.watched_since = began;
        camera.since_ms = noon_ms;
    }
    return cameras;
}

/// Fifty cameras for five minutes, whose motion changes every so often; ten lose pictures, one falls
/// silent in the third minute.
class RestlessMinutes {
public:
    RestlessMinutes(std::chrono::milliseconds change, bool terminal)
        : screen_(text_, options(terminal)), change_(change) {
        for (int tenth = 0; tenth < 3000; ++tenth)
            live_through(tenth);
        screen_.finish();
    }
    std::string text() const { return text_.str(); }
    std::array<std::size_t, 5> lines{};  // by minute
    std::size_t drawings = 0;
    std::size_t file_bytes = 0;  // of the events that go into the file

private:
    static ScreenOptions options(bool terminal) {
        ScreenOptions options;
        options.terminal = terminal;
        return options;
    }
    void tell(const Event& event) {
        screen_.event(event, now_);
        for (const Event& held : hold_.take(event, now_))
            for (const Event& told : digest_.take(held, now_))
                file_bytes += json_line(told).size() + 1;
    }
    void live_through(int tenth) {
        now_ = Time(1h) + tenth * 100ms;
        const std::int64_t time_ms = noon_ms + tenth * 100;
        const auto size = text_.tellp();
        for (int camera = 1; camera <= 50; ++camera) {
            if ((tenth + camera * 7) % (change_ / 100ms) == 0)
                tell(motion(camera, moving_[camera] ^= 1, time_ms));
            if (camera > 40 && random_() % 20 == 0)
                tell(lost(camera, static_cast<int>(random_() % 9), time_ms));
        }
        if (tenth == 1500) tell(state(17, "silent", time_ms));
        screen_.update(cameras_, {}, now_);
        if (text_.tellp() == size) return;
        const std::string added = text().substr(static_cast<std::size_t>(size));
        ++drawings;
        lines[static_cast<std::size_t>(tenth / 600)] +=
            static_cast<std::size_t>(std::count(added.begin(), added.end(), '\n'));
    }

    std::ostringstream text_;
    Screen screen_;
    MotionHold hold_{5s};
    EventDigest digest_;
    std::chrono::milliseconds change_;
    std::vector<CameraState> cameras_ = live_cameras(50, Time(1h));
    std::array<bool, 51> moving_{};
    std::mt19937 random_{7};
    Time now_{};
};

TEST(Screen, ShowsLessThanALineASecondOfFiftyRestlessCameras) {
    for (const auto change : {300ms, 2500ms, 5100ms, 7000ms}) {
        const RestlessMinutes minutes(change, false);
        for (const std::size_t lines : minutes.lines) {
            EXPECT_LT(lines, 60U) << change.count() << minutes.text();
            EXPECT_GT(lines, 0U);
        }
