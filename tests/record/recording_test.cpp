// Whole recordings of simulated cameras with the built driver: interrupted, killed, and bad ones.
#include "record/recording.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>

#include "ffmpeg.h"
#include "host/document_builder.h"
#include "host/session.h"
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
        plan.check = plan.rules.remember_files = true;
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
    RecordingStep interrupt_after(std::uint64_t frames) const {
        return {0ms, [this, frames](Session&) {
                    await(frames);
                    raise(SIGINT);
                }};
    }
    /// The movies of a camera, in order.
    static std::vector<std::string> movies(int camera) {
        std::vector<std::string> found;
        std::error_code none;
        const fs::path folder = "out/camera-" + std::to_string(camera);
        for (const auto& entry : fs::recursive_directory_iterator(folder, none))
            if (entry.path().extension() == ".mkv") found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
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
    const auto drive = [this](Session& plugin) {
        await(5);
        plugin.write(relay_document(1, 3, true));
        plugin.write(recording_document(2, 4, true));
    };
    plan.steps = {{0ms, drive}, interrupt_after(50)};
    ASSERT_EQ(run(), exit_done) << table;
    EXPECT_EQ(fleet->relay(0), 0);
    for (std::size_t i = 0; i < 2; ++i) {
        const DecodeResult result = check_file(movies(static_cast<int>(i) + 1).at(0));
        EXPECT_TRUE(result.clean()) << result.first_fault;
        const std::string count = std::to_string(result.packets);
        EXPECT_THAT(table, testing::ContainsRegex("0  +" + count + "  .* " + count + "\n"));
        const std::uint64_t sent = fleet->counters(i).frames;
        EXPECT_TRUE(result.packets == sent || result.packets + 1 == sent) << result.packets << ' ' << sent;
    }
    EXPECT_TRUE(fs::exists(fs::path(movies(1).at(0)).replace_extension(".jpg")));
    EXPECT_TRUE(fs::exists(fs::path(movies(2).at(0)).replace_extension(".png")));
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

    const std::vector<std::string> first = movies(1);
    plan.steps = {interrupt_after(5)};
    EXPECT_EQ(run(), exit_done);
    EXPECT_EQ(movies(1).size(), 2U) << "beside the earlier one";
    EXPECT_EQ(movies(1).front(), first.front());
    plan.rules.replace = true;
    EXPECT_EQ(run(), exit_done);
    EXPECT_EQ(movies(1).size(), 1U);
    EXPECT_NE(movies(1), first);
    plan.steps.clear();
    plan.duration = 100ms;
    Behaviour mute;
    mute.faults = parse_faults("error=100%");
    EXPECT_EQ(run(mute), exit_failed);
    EXPECT_EQ(movies(1).size(), 1U) << "replaced by nothing: it stays";
    EXPECT_TRUE(check_file(movies(1).at(0)).clean());
}

TEST_F(Recording, EndsTheCheckByASecondSignalAndFailsWithFramesThatDoNotDecode) {
    const auto twice = [this](Session&) {
        await(10);
        raise(SIGINT), raise(SIGTERM);
    };
    plan.steps = {{0ms, twice}};
    EXPECT_EQ(run(), exit_done);
    EXPECT_THAT(table, HasSubstr("files:\n"));
    plan.steps = {interrupt_after(10)};
    plan.rules.replace = true;
    Behaviour behaviour;
    behaviour.faults = parse_faults("corrupt=100%");
    EXPECT_EQ(run(behaviour), exit_failed);
    for (const int camera : {1, 2})
        EXPECT_GT(check_file(movies(camera).at(0)).faulty, 0U) << camera;
    plan.faults_expected = true;
    EXPECT_EQ(run(behaviour), exit_done) << table;
}

TEST_F(Recording, LeavesFilesThatDecodeWhenItIsKilled) {
    const pid_t child = fork();  // no thread runs yet
    ASSERT_GE(child, 0);
    if (child == 0) _exit(record_both());
    const auto end = Clock::now() + 60s;
    std::error_code none;
    while ((movies(2).empty() || fs::file_size(movies(2)[0], none) < 50'000) && Clock::now() < end)
        std::this_thread::sleep_for(5ms);
    kill(child, SIGKILL);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, SIGKILL);
    for (const int camera : {1, 2}) {
        const DecodeResult result = check_file(movies(camera).at(0));
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
