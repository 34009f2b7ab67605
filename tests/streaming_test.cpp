// What must hold while cameras stream: stops, lives, storms, and want of descriptors.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "camera/fleet.h"
#include "device/device.h"
#include "plugin/Plendix.h"
#include "plugin/settings.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"

extern "C" {
std::remove_pointer_t<LoadFunction> Load;
std::remove_pointer_t<UnloadFunction> Unload;
}

namespace plendix {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class Streaming : public testing::Test {
protected:
    /// Cameras 127.31.(80 + net).1 and up, of which these are configured.
    void stream(int net, int count, int first = 1, int last = 255) {
        const std::string prefix = "127.31." + std::to_string(80 + net) + ".";
        std::vector<camera::Config> cameras(static_cast<std::size_t>(count));
        std::string devices;
        for (int number = 1; number <= count; ++number) {
            camera::Config& config = cameras[static_cast<std::size_t>(number - 1)];
            config.address = prefix + std::to_string(number);
            config.sensor_width = 320;
            config.sensor_height = 240;
            if (number < first || number > last) continue;
            devices += device(number, config.address, "Width='64' Height='32' Standard='0' Framerate='20'");
        }
        if (!fleet) {
            fleet = std::make_unique<camera::Fleet>(cameras);
            fleet->start();
        }
        post(*g_Plugin, change(devices));
        open(*g_Plugin);
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
    stream(0, 255);
    EXPECT_LT(close(plugin), 1s);  // identifying
    stream(0, 255);
    EXPECT_TRUE(frames_from(255));
    for (std::size_t camera = 0; camera < 255; ++camera)
        fleet->inject(
            camera, camera::parse_fault(camera % 2 == 0 ? "silent" : "loss", camera % 2 == 0 ? "60s" : "5%"));
    std::atomic<bool> storming{true};
    std::atomic<int> posted{0};
    std::thread storm([&] {  // as fast as the queue takes them
        for (; storming; ++posted)
            post(plugin, change("<Device Number='3'/><Device Number='4'/>"));
    });
    EXPECT_TRUE(host.wait_for(
        [&](auto&) {
            const auto& faults = fleet->counters(254).faults;
            return posted > 2000 && faults[static_cast<std::size_t>(camera::FaultKind::silent)] > 0;
        },
        20s));
    host.clear();
    EXPECT_TRUE(frames_from(60));  // neither faults nor the storm stop the other pictures
    EXPECT_LT(close(plugin), 1s);
    storming = false;
    open(plugin);  // makes room for a post that waits
    storm.join();
    EXPECT_LT(close(plugin), 1s);
}

// Descriptors that select cannot watch, and then none at all: the first two cameras stream on, and the
// others come up as soon as there is room.
TEST_F(Streaming, CamerasWaitForDescriptors) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    for (const rlim_t most : {rlim_t{2000}, rlim_t{1020}}) {
        const rlimit lowered = {most, limit.rlim_max};
        host.clear();
        stream(3, 8, 1, 2);
        EXPECT_TRUE(frames_from(2));
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
        std::vector<int> taken;
        for (int next = 0; next >= 0 && next < 1019; taken.push_back(next))
            next = ::open("/dev/null", O_RDONLY);
        host.clear();
        stream(3, 8, 3, 8);
        EXPECT_TRUE(host.wait_for([](auto& h) {
            return testing::Matches(testing::Contains(HasSubstr("create socket error 24")))(h.log_lines());
        }));
        host.clear();
        EXPECT_TRUE(frames_from(2, 2));
        std::for_each(taken.begin(), taken.end(), [](int descriptor) { ::close(descriptor); });
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        EXPECT_TRUE(frames_from(8));
        close(plugin);
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
        post(*g_Plugin, text);
        _WriteParmsIn command = {0, 0, 0, 0, {}, static_cast<std::uint32_t>(text.size()), text.data(), 5};
        _WriteParmsOut written = {};
        return g_Plugin->Write(&command, &written);
    });
    stream(4, 4);
    EXPECT_TRUE(host.wait_for([](auto&) { return frames >= 40; }, 30s));
    close(plugin);
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
    const auto live = [&](bool see_frames) {
        _LoadParmsIn load = {0, 0, 0, plugin.EventCallback};
        _LoadParmsOut loaded = {};
        _UnloadParmsIn unload = {};
        _UnloadParmsOut unloaded = {};
        g_Plugin = nullptr;  // the host's own
        ::Load(&load, &loaded);
        host.clear();
        stream(1, 2);
        EXPECT_TRUE(!see_frames || frames_from(2));
        close(*g_Plugin);
        ::Unload(&unload, &unloaded);
    };
    live(true);
    const auto descriptors = count("/proc/self/fd");
    const auto threads = count("/proc/self/task");
    for (int life = 0; life < 200; ++life)
        live(life % 20 == 0);
    EXPECT_EQ(count("/proc/self/fd"), descriptors);
    EXPECT_TRUE(host.wait_for([&](auto&) { return count("/proc/self/task") == threads; }));
}

TEST_F(Streaming, TheFileIsTheDocumentWheneverTheHostGetsOne) {
    static std::atomic<int> same, different;
    ConnectHost([](_EventParmsIn* in, _EventParmsOut*) {
        const std::string text(static_cast<const char*>(in->Data), in->DataLength);
        if (in->Kind != EventKindConfig || text.find("<Modules>") != std::string::npos) return 0;
        TiXmlDocument file;
        file.LoadFile(szFileName);
        std::string line;
        line << file;
        ++(line == text ? same : different);
        return 0;
    });
    stream(5, 20);
    EXPECT_TRUE(host.wait_for([](auto&) { return same >= 5; }, 20s));
    close(plugin);
    EXPECT_EQ(different, 0);
}

TEST_F(Streaming, ABurstOfDocumentsLosesNoneAndTheCamerasGoOn) {
    stream(2, 2);
    EXPECT_TRUE(frames_from(2));
    const auto named = [](const std::string& name) {
        return change("<Device Number='200'><Video><Input Number='0' Name='" + name + "'/></Video></Device>");
    };
    std::string deep;
    for (int depth = 0; depth < 70; ++depth)
        deep += "<a>";
    host.clear();
    for (int number = 1; number <= 5000; ++number)  // some change something, the others make a log line
        post(plugin, number % 25 == 0 ? named(std::to_string(number)) : deep);
    EXPECT_TRUE(host.wait_for(
        [](auto& h) {
            const auto documents = h.documents(EventKindConfig);
            return !documents.empty() && testing::Matches(HasSubstr("Name=\"5000\""))(documents.back());
        },
        30s));
    EXPECT_GE(host.documents(EventKindConfig).size(), 200U);
    EXPECT_EQ(host.log_lines().size(), 4800U);
    host.clear();
    EXPECT_TRUE(frames_from(2));
    close(plugin);
}

}  // namespace
}  // namespace plendix
