// What an operator sees: of fifty restless cameras, of troubles, and of addresses where no camera is.
#include "record/screen.h"

#include <algorithm>
#include <future>
#include <random>
#include <regex>
#include <sstream>

#include "host/diagnosis.h"
#include "host/event_json.h"
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
        for (std::size_t i = 1; i <= 50; ++i) {
            const int camera = static_cast<int>(i);
            if ((tenth + camera * 7) % (change_ / 100ms) == 0) {
                moving_[i] = !moving_[i];
                tell(motion(camera, moving_[i], time_ms));
            }
            if (i > 40 && random_() % 20 == 0) tell(lost(camera, static_cast<int>(random_() % 9), time_ms));
        }
        if (tenth == 1500) tell({time_ms, 17, EventKind::state, {{"state", "silent"}}});
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
        EXPECT_LT(minutes.file_bytes * 12, 5'000'000U) << change.count();
        EXPECT_THAT(minutes.text(), HasSubstr("camera 17: silent\n"));
        EXPECT_THAT(minutes.text(), HasSubstr("pictures lost: blocks did not arrive ("));
    }
    EXPECT_LE(RestlessMinutes(300ms, true).drawings, 600U) << "two a second";
}

TEST(Screen, DrawsTroublesFirstAndNothingThatATerminalActsOn) {
    for (const int width : {60, 120}) {
        std::ostringstream text;
        ScreenOptions options;
        options.terminal = true;
        options.width = width;
        Screen screen(text, options);
        const Time began = Time(1h);
        const auto drawn = [&] {
            return std::regex_replace(text.str(), std::regex("\x1B\\[(1A|2K)|\r"), "");
        };
        auto cameras = live_cameras(50, began);
        screen.update(cameras, {}, began);
        cameras[4].name = "Ga\x1B[2Jte\x9B\xC2\x9B\r\n\xE2\x80\xAE \xC3\xA4\xF0\x9F\x98";
        cameras[4].condition = CameraCondition::silent;
        cameras[6].condition = CameraCondition::refused;
        cameras[6].refusal = "Model 150 is not supported";
        cameras[48].lost_blocks = cameras[49].lost_blocks = 1;
        cameras[48].last_loss = cameras[49].last_loss = began + 40s;
        screen.update(cameras, {}, began + 40s);
        cameras[49].lost_blocks = 5;
        RecorderNumbers numbers;
        numbers.written = 3'000'000'000;
        numbers.free_bytes = 6'000'000'000;
        const std::string line = cameras[4].name + " \x1B]0;x\a";
        screen.event({noon_ms, 5, EventKind::log, {{"level", 75}, {"text", line}}}, began);
        for (const int camera : {5, 9})  // of a silent one nobody knows
            screen.event(motion(camera, true, noon_ms), began);
        text.str("");
        screen.update(cameras, numbers, began + 60s);
        const std::string block = drawn().substr(drawn().find("---"));
        EXPECT_THAT(block,
                    testing::MatchesRegex("--- 48 of 50 cameras live, running 1 min -+\n"
                                          "! camera 5 'Ga.*' silent since ..:00:00 \\(1 min\\)\n"
                                          "! camera 7 refused: Model 150 is not supported\n"
                                          "! camera 50 losing pictures since ..:00:40 \\(20 s\\), 5 lost\n"
                                          "  motion: camera 9\n"
                                          "  0.0 frames/s, 0.0 Mbit/s\n"
                                          "  3.0 GB written, 6.0 GB free, full in 2 min\n"));
        std::istringstream lines(drawn());
        for (std::string row; std::getline(lines, row);) {
            EXPECT_EQ(row, printable(row));
            EXPECT_LT(columns_of(row), static_cast<std::size_t>(width)) << row;
        }
        for (std::size_t i = 0; i < 40; ++i)
            cameras[i].condition = i % 2 == 0 ? CameraCondition::silent : CameraCondition::connecting;
        text.str("");
        screen.update(cameras, numbers, began + 61s);
        const std::string many = drawn();
        EXPECT_LE(std::count(many.begin(), many.end(), '\n'), 12);
        EXPECT_THAT(many, testing::ContainsRegex("\n! cameras 1, 3.* more silent since ..:00:00 \\(1 min\\)\n"
                                                 "! cameras 2.* more not reached since ..:00:00.*\n"));
        EXPECT_THAT(text.str(), testing::StartsWith("\r\x1B[2K\x1B[1A\x1B[2K")) << "over the block before";
    }
}

TEST(Screen, HoldsMotionAndCountsWhatRepeats) {
    MotionHold hold(5s);
    EventDigest digest;
    const auto log = [](int camera, int block, const char* end = "\"}") {
        return std::to_string(camera) + R"( log {"level":50,"lost_block":)" + std::to_string(block) +
               R"(,"of":9,"text":"Camera )" + std::to_string(camera) + " - did not receive block " +
               std::to_string(block) + " of 9" + end;
    };
    const Event none{0, 0, EventKind::version};  // always told: left out below
    const struct {
        std::chrono::milliseconds at;
        Event event;
        std::string told;
    } rows[] = {
        {0ms, motion(1, false, 0), R"(1 motion {"active":false})"},
        {100ms, motion(1, true, 100), R"(1 motion {"active":true})"},
        {1s, motion(1, false, 1000), ""},
        {4s, motion(1, true, 4000), ""},
        {6s, motion(2, true, 6000), R"(2 motion {"active":true})"},
        {7s, motion(1, false, 7000), ""},
        {11900ms, none, ""},
        {12s, none, R"(1 motion {"active":false,"seconds":6.9})"},
        {13s, {13000, 2, EventKind::config, {{"removed", true}}}, R"(2 config {"removed":true})"},
        {18s, none, R"(2 motion {"active":false,"seconds":7.0})"},
        {20s, lost(3, 1, 0), log(3, 1)},
        {21s, lost(3, 7, 0), ""},
        {22s, lost(4, 1, 0), log(4, 1)},
        {79s, lost(3, 8, 0), ""},
        {81s, none, log(3, 8, R"(","repeated":2})")},
        {150s, lost(3, 2, 0), log(3, 2)},
    };
    for (const auto& row : rows) {
        const Time now = Time(1h) + row.at;
        std::string told;
        const auto add = [&](const std::vector<Event>& events) {
            for (const Event& event : events) {
                if (event.kind == EventKind::version) continue;
                told +=
                    std::to_string(event.camera) + ' ' + kind_name(event.kind) + ' ' + event.values.dump();
            }
        };
        for (const Event& event : hold.take(row.event, now))
            add(digest.take(event, now));
        for (const Event& event : hold.due(now))
            add(digest.take(event, now));
        add(digest.due(now));
        EXPECT_EQ(told, row.told) << row.at.count();
    }
}

TEST(Report, CountsRatesOverAllTheTimeAndSaysWhatToDo) {
    const Time began = Time(1h);
    Row row;
    row.state = live_cameras(3, began)[2];
    row.state.name = "Gate";
    row.state.frames = 90;
    row.state.bytes = 2'250'000;
    row.state.last_frame = began + 3s;
    row.state.condition = CameraCondition::silent;
    Row refused = row;
    refused.state.condition = CameraCondition::refused;
    refused.state.refusal = "Version 61704 is not supported";
    std::ostringstream table;
    std::ostringstream remarks;
    print_table(table, {row}, began + 18s);
    EXPECT_THAT(table.str(), testing::ContainsRegex("   90    5.00    1.00  "));
    print_remarks(remarks, {row, refused}, began + 18s);
    EXPECT_THAT(remarks.str(), testing::MatchesRegex(
                                   "camera 3 'Gate' \\(10.0.0.3\\): sends no more .*15 s before the end\\)\n"
                                   "camera 3 .*Version 61704 is not supported: .* update the camera\n"));
    CameraSettings one;
    one.number = 1;
    one.address = "10.0.0.3";
    CameraSettings other = one;
    other.number = 7;
    EXPECT_THAT(shared_addresses({one, other}),
                testing::ElementsAre(HasSubstr("cameras 1 and 7 have the same")));
    EXPECT_THAT(with_advice("10.0.0.3 create socket error 24"), HasSubstr("ulimit -n"));
}

class Diagnosis : public CameraBench {
protected:
    /// What is said of own_address(9) while something there answers the first datagram with this; an
    /// empty answer is an echo.
    static std::string of(const std::string& answer) {
        const UdpSocket socket(own_address(9), 69);
        auto verdict = std::async(std::launch::async, [] { return diagnose(own_address(9), 10s); });
        pollfd waiting{socket.descriptor(), POLLIN, 0};
        if (poll(&waiting, 1, 10'000) != 1) return "nothing was asked";
        std::array<std::uint8_t, 600> data{};
        Endpoint asker;
        const auto size = static_cast<std::size_t>(socket.receive(data.data(), data.size(), asker));
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(answer.data());
        socket.send(answer.empty() ? data.data() : bytes, answer.empty() ? size : answer.size(), asker);
        return verdict.get();
    }
};

TEST_F(Diagnosis, TellsApartWhatAnswersAtAnAddress) {
    using namespace std::string_literals;
    const std::string error = "\0\5\0\1File \x1B[2Jnot found\0"s;
    EXPECT_THAT(of(""), HasSubstr("our own request comes back"));
    EXPECT_THAT(of(error), testing::AllOf(HasSubstr("another TFTP server"), HasSubstr("[2Jnot found')"),
                                          testing::Not(HasSubstr("\x1B"))));
    EXPECT_THAT(of("\0\3\0\1file"s), HasSubstr("without the block size option"));
    EXPECT_THAT(of("hello"), HasSubstr("5 bytes that mean nothing"));
    EXPECT_THAT(diagnose(own_address(9), 10s), HasSubstr("nothing listens on its UDP port 69"));
    {
        const UdpSocket deaf(own_address(9), 69);
        EXPECT_THAT(diagnose(own_address(9), 100ms), HasSubstr("try 'ping " + own_address(9)));
    }
    EXPECT_THAT(diagnose("gate.example", 1s), HasSubstr("is no IPv4 address"));
    start();
    EXPECT_THAT(diagnose(own_address(1), 10s), HasSubstr("a camera answers"));
    Config strange;
    strange.model = 150;
    start(strange);
    EXPECT_THAT(diagnose(own_address(1), 10s), HasSubstr("Model 150 is not supported: the driver takes"));
}

}  // namespace
}  // namespace plendix::camera::test
