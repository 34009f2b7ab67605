// What must hold while cameras stream: stops, lives, storms, and want of descriptors.
#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "plugin/settings.h"
#include "support/calls.h"
#include "support/descriptors.h"
#include "support/folder.h"
#include "support/host.h"
#include "support/small_cameras.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class Streaming : public testing::Test {
protected:
    /// So many cameras, of which these are configured.
    void stream(int count, int first = 1, int last = 255) {
        const auto cameras = small_cameras(2, static_cast<std::size_t>(count));
        std::string devices;
        for (int number = first; number <= std::min(count, last); ++number)
            devices += device(number, cameras[static_cast<std::size_t>(number - 1)].address,
                              "Width='64' Height='32' Standard='0' Framerate='20'");
        if (!fleet) {
            fleet = std::make_unique<camera::Fleet>(cameras);
            fleet->start();
        }
        post(change(devices));
        open();
    }
    /// Waits for frames of so many cameras, counting those up to the last.
    bool frames_from(std::size_t cameras, unsigned last = 255) {
        return host.wait_for(
            [&](auto& h) {
                std::set<std::uint32_t> sources;
                for (const RecordedEvent& frame : h.frames())
                    if ((frame.record.SourceId >> 8 & 255) <= last) sources.insert(frame.record.SourceId);
                return sources.size() >= cameras;
            },
            30s);
    }
    TemporaryFolder folder;
    RecordingHost host;
    CPlugin& plugin = host.plugin();
    std::unique_ptr<camera::Fleet> fleet;
};

TEST_F(Streaming, CloseReturnsWithinASecondFromEveryState) {
    stream(255);
    EXPECT_LT(close(), 1s);  // identifying
    stream(255);
    EXPECT_TRUE(frames_from(255));
    for (std::size_t camera = 0; camera < 255; ++camera)
        fleet->inject(
            camera, camera::parse_fault(camera % 2 == 0 ? "silent" : "loss", camera % 2 == 0 ? "60s" : "5%"));
    std::atomic<bool> storming{true};
    std::atomic<int> posted{0};
    std::thread storm([&] {  // as fast as the queue takes them
        for (; storming; ++posted)
            post(change("<Device Number='3'/><Device Number='4'/>"));
    });
    EXPECT_TRUE(host.wait_for(
        [&](auto&) {
            const auto& faults = fleet->counters(254).faults;
            return posted > 2000 && faults[static_cast<std::size_t>(camera::FaultKind::silent)] > 0;
        },
        20s));
    host.clear();
    EXPECT_TRUE(frames_from(60));  // neither faults nor the storm stop the other pictures
    EXPECT_LT(close(), 1s);
    storming = false;
    open();  // makes room for a post that waits
    storm.join();
    EXPECT_LT(close(), 1s);
}

// Descriptors that select cannot watch, and then none at all: the first two cameras stream on, and the
// others come up as soon as there is room.
TEST_F(Streaming, CamerasWaitForDescriptors) {
    for (const rlim_t limit : {rlim_t{2000}, rlim_t{1020}}) {
        host.clear();
        stream(8, 1, 2);
        EXPECT_TRUE(frames_from(2));
        auto taken = std::make_unique<TakenDescriptors>(limit, 1020);
        host.clear();
        stream(8, 3, 8);
        EXPECT_TRUE(host.wait_for([](auto& h) {
            return testing::Matches(testing::Contains(HasSubstr("create socket error 24")))(h.log_lines());
        }));
        host.clear();
        EXPECT_TRUE(frames_from(2, 2));
        taken.reset();
        EXPECT_TRUE(frames_from(8));
        close();
        std::remove(szFileName);
    }
}

TEST_F(Streaming, ACallbackMayBeSlowAndPostDocuments) {
    static std::atomic<unsigned> frames, lines;
    ConnectHost([](_EventParmsIn* in, _EventParmsOut*) {
        lines += in->Kind == EventKindLog ? 1 : 0;
        if (in->Kind != EventKindVideo) return 0;
        if (++frames % 10 == 0) std::this_thread::sleep_for(500ms);
        const std::string text = change("<Device Number='1'/>");
        post(text);
        _WriteParmsIn command = {0, 0, 0, 0, {}, static_cast<std::uint32_t>(text.size()), text.data(), 5};
        _WriteParmsOut written = {};
        return g_Plugin->Write(&command, &written);
    });
    stream(4);
    EXPECT_TRUE(host.wait_for([](auto&) { return frames >= 40; }, 30s));
    close();
    unsigned sent = 0;
    for (std::size_t camera = 0; camera < 4; ++camera)
        sent += static_cast<unsigned>(fleet->counters(camera).frames);
    EXPECT_NEAR(frames, sent, 4);  // on their way when it stopped
    EXPECT_EQ(lines, 4U);          // every camera's first picture, and no loss
}

TEST_F(Streaming, TwoHundredLivesLeaveNothingBehind) {
    const auto count = [](const char* folder_name) {
        return std::distance(std::filesystem::directory_iterator(folder_name), {});
    };
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    };
    const auto live = [&](int life) {
        g_Plugin = nullptr;  // the host's own
        load(plugin.EventCallback);
        host.clear();
        stream(2);
        EXPECT_TRUE(life % 20 != 0 || frames_from(2));
        if (life % 3 != 0) close();  // a host may forget it
        unload();
    };
    live(0);
    const auto descriptors = count("/proc/self/fd");
    const auto threads = count("/proc/self/task");
    const auto maps = mappings();
    for (int life = 1; life <= 200; ++life)
        live(life);
    EXPECT_EQ(count("/proc/self/fd"), descriptors);
    EXPECT_TRUE(host.wait_for([&](auto&) { return count("/proc/self/task") == threads; }));
    EXPECT_LT(mappings(), maps + 100);
}

TEST_F(Streaming, ABurstOfDocumentsLosesNoneAndTheCamerasGoOn) {
    stream(2);
    EXPECT_TRUE(frames_from(2));
    const std::string nested = std::regex_replace(std::string(70, 'a'), std::regex("a"), "<a>");
    host.clear();
    for (int number = 1; number <= 5000; ++number)  // some change something, the others make a log line
        post(number % 25 != 0 ? nested
                              : change("<Device Number='9' ipAddress='" + std::to_string(number) + "'/>"));
    EXPECT_TRUE(host.wait_for(
        [](auto& h) {
            const auto sent = h.documents(EventKindConfig);  // cameras may add to them
            return h.documents(EventKindLog).size() == 4800 && sent.size() >= 200 &&
                   sent.back().find("ipAddress=\"5000\"") != std::string::npos;
        },
        30s));
    host.clear();
    EXPECT_TRUE(frames_from(2));
    post(change(device(1, small_cameras(2, 1)[0].address, "Standard='5'")));  // another codec on the way
    EXPECT_TRUE(host.wait_for([](auto& h) { return h.frames().back().record.DataType == DataTypeH264; }));
    close();
}

}  // namespace
}  // namespace plendix
