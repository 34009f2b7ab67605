// Whole recordings of simulated cameras with the built driver: interrupted, killed, and bad ones.
#include "record/recording.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>

#include "ffmpeg.h"
#include "host/plugin_library.h"
#include "record/decode_check.h"
#include "support/camera_bench.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Recording : public CameraBench {
protected:
    Recording() {
        plan.plugin = PLENDIX_LIBRARY;
        plan.output = "out";
    }
    /// Records a JPEG and an H.264 camera until SIGINT; returns the exit code.
    int record_both(const Behaviour& behaviour = {}) {
        start(sensor(640, 480), 2, behaviour);
        plan.cameras.assign(2, {});
        CameraSettings &jpeg = plan.cameras[0], &h264 = plan.cameras[1];
        jpeg.number = 1;
        jpeg.address = own_address(1);
        jpeg.name = "Gate & yard";
        jpeg.codec = Codec::jpeg;
        h264.number = 2;
        h264.address = own_address(2);
        h264.name = "Camera 2";
        h264.codec = Codec::h264;
        h264.rate = 100;
        h264.quality = 9;
        h264.width = 320;
        h264.height = 240;
        const int code = record(plan);
        fleet->stop();
        return code;
    }
    int run(const Behaviour& behaviour = {}) {
        testing::internal::CaptureStdout();
        const int code = record_both(behaviour);
        table = testing::internal::GetCapturedStdout();
        return code;
    }
    /// Lets the cameras send so many frames each.
    void await(std::uint64_t frames) const {
        const auto end = Clock::now() + 20s;
        while (std::min(fleet->counters(0).frames, fleet->counters(1).frames) < frames && Clock::now() < end)
            std::this_thread::yield();
        EXPECT_LT(Clock::now(), end);
    }
    Step interrupt_after(std::uint64_t frames) const {
        return {0ms, [this, frames](PluginLibrary&) {
                    await(frames);
                    raise(SIGINT);
                }};
    }
    static std::string text(const std::string& file) {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    TemporaryFolder folder;
    RecordingPlan plan;
    std::string table;
};

TEST_F(Recording, KeepsAllFramesAndEventsUntilItIsInterrupted) {
    const auto drive = [this](PluginLibrary& plugin) {
        await(5);
        plugin.write(relay_document(1, 3, true));
        plugin.write(recording_document(2, 4, true));
    };
    plan.steps = {{0ms, drive}, interrupt_after(50)};
    ASSERT_EQ(run(), exit_done) << table;
    EXPECT_EQ(fleet->relay(0), 0);
    for (std::size_t i = 0; i < 2; ++i) {
        const DecodeResult result = check_file("out/camera-" + std::to_string(i + 1) + ".mkv");
        EXPECT_TRUE(result.clean()) << result.first_fault;
        const std::string count = std::to_string(result.packets);
        EXPECT_THAT(table, testing::ContainsRegex("0  +" + count + "  .* " + count + "\n"));
        const std::uint64_t sent = fleet->counters(i).frames;
        EXPECT_TRUE(result.packets == sent || result.packets + 1 == sent) << result.packets << ' ' << sent;
    }
    EXPECT_TRUE(fs::exists("out/camera-1.jpg") && fs::exists("out/camera-2.png"));
    const std::string events = text("out/events.jsonl");
    for (const char* event : {R"("camera":0,"kind":"version","values":{"name":"Plendix","version":"9.2.3.)",
                              R"("camera":1,"kind":"config","values":{"name":"Gate & yard",)",
                              R"("codec":"h264","width":320,"height":240,"framerate":100,"quality":9}})",
                              R"("camera":1,"kind":"connection","values":{"connected":true}})",
                              R"("camera":1,"kind":"relay","values":{"active":true}})",
                              R"("camera":2,"kind":"recording","values":{"active":true}})"})
        EXPECT_THAT(events, HasSubstr(event));
    EXPECT_THAT(text("out/driver.log"), HasSubstr("sensor 640x480\n"));
    EXPECT_THAT(table, testing::Not(HasSubstr("sensor")));
    EXPECT_THROW(record(plan), UsageError) << "over this recording";
}

TEST_F(Recording, FailsByTheSecondSignalAndWithFramesThatDoNotDecodeOrNone) {
    plan.replace = true;
    plan.steps = {{0ms, [](PluginLibrary&) { raise(SIGINT), raise(SIGTERM); }}};
    EXPECT_EXIT(record_both(), testing::KilledBySignal(SIGTERM), "");
    plan.steps = {interrupt_after(10)};
    Behaviour behaviour;
    behaviour.faults = parse_faults("corrupt=100%");
    EXPECT_EQ(run(behaviour), exit_failed);
    for (const char* file : {"out/camera-1.mkv", "out/camera-2.mkv"})
        EXPECT_GT(check_file(file).faulty, 0U) << file;
    plan.faults_expected = true;
    EXPECT_EQ(run(behaviour), exit_done) << table;
    plan.steps.clear();
    plan.duration = 100ms;
    behaviour.faults = parse_faults("error=100%");
    EXPECT_EQ(run(behaviour), exit_failed);
}

TEST_F(Recording, LeavesFilesThatDecodeWhenItIsKilled) {
    const pid_t child = fork();  // no thread runs yet
    ASSERT_GE(child, 0);
    if (child == 0) _exit(record_both());
    const auto end = Clock::now() + 60s;
    std::error_code none;
    while (fs::file_size("out/camera-2.mkv", none) + 1 < 50'001 && Clock::now() < end)
        std::this_thread::sleep_for(5ms);
    kill(child, SIGKILL);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, SIGKILL);
    for (const char* file : {"out/camera-1.mkv", "out/camera-2.mkv"}) {
        const DecodeResult result = check_file(file);
        EXPECT_GT(result.decoded, 20U);
        EXPECT_EQ(result.decoded, result.packets);
    }
}

TEST_F(Recording, RefusesWhatIsNoPluginBeforeAnythingIsWritten) {
    Dl_info libav{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&av_packet_alloc), &libav), 0);
    const std::pair<fs::path, const char*> cases[] = {{"/nowhere/Plendix.so", "no plug-in at"},
                                                      {"/proc/self/exe", "cannot load"},
                                                      {libav.dli_fname, "does not export 'Load'"}};
    for (const auto& [file, expected] : cases) {
        plan.plugin = file;
        EXPECT_THAT([&] { record(plan); }, testing::ThrowsMessage<Failure>(HasSubstr(expected)));
        EXPECT_FALSE(fs::exists("out"));
    }
}

}  // namespace
}  // namespace plendix::camera::test
