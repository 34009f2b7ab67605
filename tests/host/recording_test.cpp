// Whole recordings through the fake plug-in: loaded, configured, interrupted and killed.
#include "host/recording.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "host/decode_check.h"
#include "host/event.h"
#include "host/movie_file.h"
#include "host/plugin_library.h"
#include "pictures.h"
#include "support/folder.h"
#include "usage.h"

using namespace plendix;
namespace fs = std::filesystem;

namespace {

class Recording : public testing::Test {
protected:
    Recording() {
        unsetenv("FAKE_FRAMES");
        unsetenv("FAKE_BROKEN");
        plan_.plugin = FAKE_PLUGIN;
        plan_.output = "out";
        plan_.duration = std::chrono::milliseconds(700);
        plan_.replace = true;
        use(Codec::jpeg);
    }
    void use(Codec codec) {
        plan_.cameras = {{1, "10.0.0.1", "Camera 1", codec}, {2, "10.0.0.1", "Camera 2", codec}};
    }
    int run() {
        testing::internal::CaptureStdout();
        const int code = record(plan_);
        table_ = testing::internal::GetCapturedStdout();
        return code;
    }
    /// Records endlessly in a child until a good part is on the disk, then sends the signal.
    int interrupt(int signal) {
        fs::remove_all("out");
        setenv("FAKE_FRAMES", "1000000", 1);
        plan_.duration = std::chrono::milliseconds(0);
        const pid_t child = fork();
        if (child == 0) _exit(record(plan_));
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        std::error_code none;
        while (fs::file_size("out/camera-2.mkv", none) + 1 < 100001 &&
               std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        kill(child, signal);
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }

    TemporaryFolder folder_;
    RecordingPlan plan_;
    std::string table_;
};

}  // namespace

TEST_F(Recording, KeepsEveryFrameAndItsTime) {
    for (const Codec codec : {Codec::jpeg, Codec::h264}) {
        use(codec);
        ASSERT_EQ(run(), exit_done) << table_;
        EXPECT_NE(table_.find("    40   25.00"), std::string::npos) << table_;
        MovieFile movie("out/camera-2.mkv");
        const LibavPointer<AVPacket> packet(av_packet_alloc());
        for (int i = 0; i < 40; ++i) {
            ASSERT_TRUE(movie.read(*packet));
            EXPECT_EQ(packet->pts, i * 40);
            EXPECT_EQ((packet->flags & AV_PKT_FLAG_KEY) != 0,
                      codec == Codec::jpeg || static_cast<std::size_t>(i) % key_distance == 0);
        }
        EXPECT_FALSE(movie.read(*packet));
        EXPECT_TRUE(fs::exists(codec == Codec::jpeg ? "out/camera-1.jpg" : "out/camera-1.png"));
    }
    plan_.replace = false;
    EXPECT_THROW(record(plan_), UsageError);
}

TEST_F(Recording, EventsAreJsonLinesAndTheDriversOutputIsApart) {
    ASSERT_EQ(run(), exit_done) << table_;
    std::ifstream file("out/events.jsonl");
    std::vector<std::string> kinds;
    for (std::string line; std::getline(file, line);) {
        const auto event = nlohmann::json::parse(line);
        kinds.push_back(event.at("kind").get<std::string>() + event.at("camera").dump());
        if (kinds.back() == "recording1") {
            EXPECT_EQ(event.at("time"), "2023-11-14T22:13:20.200Z");
        }
    }
    EXPECT_EQ(kinds,
              (std::vector<std::string>{"config1", "config2", "recording1", "recording2", "log1", "log2"}));
    std::ifstream log("out/driver.log");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(log), {}), "opened\n");
    EXPECT_EQ(table_.find("opened"), std::string::npos);
}

TEST_F(Recording, FailsWithAFrameThatDoesNotDecodeAndWithNone) {
    setenv("FAKE_BROKEN", "39", 1);
    for (const Codec codec : {Codec::jpeg, Codec::h264}) {
        use(codec);
        EXPECT_EQ(run(), exit_failed);
        const DecodeResult result = check_file("out/camera-1.mkv");
        EXPECT_EQ(result.packets, 40U);
        EXPECT_EQ(result.faulty, 1U) << result.first_fault;
    }
    setenv("FAKE_FRAMES", "0", 1);
    EXPECT_EQ(run(), exit_failed);
}

TEST_F(Recording, EndedByASignalItLeavesFilesThatDecode) {
    for (const int signal : {SIGINT, SIGKILL}) {
        EXPECT_EQ(interrupt(signal), signal == SIGKILL ? SIGKILL : exit_done);
        for (const char* name : {"out/camera-1.mkv", "out/camera-2.mkv"}) {
            const DecodeResult result = check_file(name);
            EXPECT_GT(result.decoded, 20U);
            EXPECT_EQ(result.decoded, result.packets);
            EXPECT_TRUE(signal == SIGKILL || result.clean()) << result.first_fault;
        }
    }
}

TEST_F(Recording, WhatIsNoPluginIsRefusedBeforeAnythingIsWritten) {
    Dl_info libav{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&av_packet_alloc), &libav), 0);
    const std::pair<fs::path, const char*> cases[] = {{"/nowhere/Plendix.so", "no plug-in at"},
                                                      {__FILE__, "cannot load"},
                                                      {libav.dli_fname, "does not export 'Load'"}};
    for (const auto& [file, expected] : cases) {
        plan_.plugin = file;
        EXPECT_THAT([&] { record(plan_); }, testing::ThrowsMessage<Failure>(testing::HasSubstr(expected)));
        EXPECT_FALSE(fs::exists("out"));
    }
}
