// Whole recordings through the fake plug-in: loaded, configured, interrupted and killed.
#include "host/recording.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "host/decode_check.h"
#include "host/event.h"
#include "host/movie_file.h"
#include "host/plugin_library.h"
#include "usage.h"

using namespace plendix;
namespace fs = std::filesystem;

namespace {

class Recording : public testing::Test {
protected:
    Recording()
        : folder_(fs::path(testing::TempDir()) /
                  testing::UnitTest::GetInstance()->current_test_info()->name()) {
        fs::remove_all(folder_);
        for (const char* name : {"FAKE_FRAMES", "FAKE_BROKEN", "FAKE_PACE_MS"})
            unsetenv(name);
        plan_.plugin = FAKE_PLUGIN;
        plan_.output = folder_;
        plan_.duration = std::chrono::milliseconds(700);
        plan_.cameras.resize(2);
        for (int i = 0; i < 2; ++i) {
            auto& camera = plan_.cameras[size_t(i)];
            camera.number = i + 1;
            camera.address = "10.0.0.1";
            camera.name = "Camera " + std::to_string(i + 1);
            camera.codec = Codec::jpeg;
        }
    }

    int run() {
        testing::internal::CaptureStdout();
        const int code = record(plan_);
        table_ = testing::internal::GetCapturedStdout();
        return code;
    }

    /// Records endlessly in a child until a good part is on the disk, then sends the signal.
    int interrupt(int signal) {
        setenv("FAKE_FRAMES", "1000000", 1);
        plan_.duration = std::chrono::milliseconds(0);
        const pid_t child = fork();
        if (child == 0) _exit(record(plan_));
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        std::error_code none;
        while (fs::file_size(folder_ / "camera-2.mkv", none) + 1 < 100001 &&
               std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        kill(child, signal);
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }

    fs::path folder_;
    RecordingPlan plan_;
    std::string table_;
};

}  // namespace

TEST_F(Recording, KeepsEveryFrameAndItsTime) {
    for (const Codec codec : {Codec::jpeg, Codec::h264}) {
        for (auto& camera : plan_.cameras)
            camera.codec = codec;
        plan_.replace = codec == Codec::h264;
        ASSERT_EQ(run(), exit_done) << table_;
        EXPECT_NE(table_.find("    30   25.00"), std::string::npos) << table_;
        MovieFile movie(folder_ / "camera-2.mkv");
        const LibavPointer<AVPacket> packet(av_packet_alloc());
        for (int i = 0; i < 30; ++i) {
            ASSERT_TRUE(movie.read(*packet));
            EXPECT_EQ(packet->pts, i * 40);
            EXPECT_EQ((packet->flags & AV_PKT_FLAG_KEY) != 0, codec == Codec::jpeg || i % 10 == 0);
        }
        EXPECT_FALSE(movie.read(*packet));
        EXPECT_TRUE(fs::exists(folder_ / (codec == Codec::jpeg ? "camera-1.jpg" : "camera-1.png")));
    }
    EXPECT_THROW((plan_.replace = false, record(plan_)), UsageError);
}

TEST_F(Recording, EventsAreJsonLinesAndTheDriversOutputIsApart) {
    ASSERT_EQ(run(), exit_done) << table_;
    std::ifstream file(folder_ / "events.jsonl");
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
    std::ifstream log(folder_ / "driver.log");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(log), {}), "opened\n");
    EXPECT_EQ(table_.find("opened"), std::string::npos);
}

TEST_F(Recording, AFrameThatDoesNotDecodeFailsIt) {
    for (const Codec codec : {Codec::jpeg, Codec::h264}) {
        for (auto& camera : plan_.cameras)
            camera.codec = codec;
        plan_.replace = true;
        setenv("FAKE_BROKEN", "29", 1);
        EXPECT_EQ(run(), exit_failed);
        const DecodeResult result = check_file(folder_ / "camera-1.mkv");
        EXPECT_EQ(result.packets, 30U);
        EXPECT_EQ(result.faulty, 1U) << result.first_fault;
        unsetenv("FAKE_BROKEN");
        EXPECT_EQ(run(), exit_done);
    }
}

TEST_F(Recording, ACameraWithoutFramesFailsIt) {
    setenv("FAKE_FRAMES", "0", 1);
    EXPECT_EQ(run(), exit_failed);
}

TEST_F(Recording, KilledItLeavesFilesThatDecode) {
    EXPECT_EQ(interrupt(SIGKILL), SIGKILL);
    for (const char* name : {"camera-1.mkv", "camera-2.mkv"}) {
        const DecodeResult result = check_file(folder_ / name);
        EXPECT_GT(result.decoded, 20U);
        EXPECT_EQ(result.decoded, result.packets);
    }
}

TEST_F(Recording, InterruptedItEndsCleanly) {
    EXPECT_EQ(interrupt(SIGINT), 0);
    EXPECT_TRUE(check_file(folder_ / "camera-1.mkv").clean());
}

TEST_F(Recording, WhatIsNoPluginIsRefusedBeforeAnythingIsWritten) {
    Dl_info libav{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&av_packet_alloc), &libav), 0);
    const struct {
        fs::path file;
        const char* complaint;
    } cases[] = {{"/nowhere/Plendix.so", "no plug-in at"},
                 {__FILE__, "cannot load"},
                 {libav.dli_fname, "does not export 'Load'"}};
    for (const auto& item : cases) {
        plan_.plugin = item.file;
        try {
            record(plan_);
            FAIL() << item.file;
        } catch (const Failure& failure) {
            EXPECT_NE(std::string(failure.what()).find(item.complaint), std::string::npos) << failure.what();
        }
        EXPECT_FALSE(fs::exists(folder_));
    }
}
