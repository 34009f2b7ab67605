// What must hold whatever comes: documents made to harm, kills, storms, stops.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <random>
#include <set>
#include <thread>

#include "camera/fleet.h"
#include "device/device.h"
#include "plugin/settings.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

std::string repeat(const std::string& text, int times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

std::string change(const std::string& devices) {
    return "<Velm Delta='1'><Devices ID='2162688'>" + devices + "</Devices></Velm>";
}

std::string named(int camera, const std::string& name) {
    return change("<Device Number='" + std::to_string(camera) +
                  "' ipAddress='127.31.99.1'><Video><Input Number='0' Name='" + name +
                  "'/></Video></Device>");
}

class Reliability : public testing::Test {
protected:
    void post(const std::string& text) {
        _IOCTLParmsIn in = {0, 0, 2, {}, static_cast<std::uint32_t>(text.size()), text.data()};
        _IOCTLParmsOut out = {};
        host.plugin().IOCTL(&in, &out);
    }
    void open() {
        _OpenParmsOut out = {};
        host.plugin().Open(nullptr, &out);
    }
    std::chrono::milliseconds close() {
        const auto start = std::chrono::steady_clock::now();
        _CloseParmsOut out = {};
        host.plugin().Close(nullptr, &out);
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                     start);
    }
    TemporaryFolder folder;
    RecordingHost host;
};

TEST_F(Reliability, TextMadeToExhaustTheStackIsServedUpToThere) {
    const std::string first = "<Velm Delta='1'><Devices ID='2162688'><Device Number='7' ipAddress='a'/>";
    const std::pair<const char*, std::string> texts[] = {
        {"nested", repeat("<a>", 100000)},
        {"nested", repeat("<a>&#</a>#65;", 1000)},
        {"nested", repeat("<a b='&#'>'></a>;", 1000)},
        {"nested", repeat("<a><?xml version='></a>'?>", 1000)},
        {"nested", repeat("<a b='/'><!-- </a> --><![CDATA[</a>]]>", 1000)},
        {"attributes", "<a " + repeat("b='' ", 20000) + "/>"},
    };
    for (const auto& [problem, text] : texts) {
        host.clear();
        post("<?xml version='1.0' encoding='UTF-8'?>" + first + text);
        open();
        close();
        EXPECT_THAT(host.log_lines(), testing::Contains(HasSubstr(problem))) << text.substr(0, 30);
        EXPECT_THAT(host.documents(EventKindConfig).back(), HasSubstr("Number=\"7\""));
    }
}

TEST_F(Reliability, OddDocumentsAreReadAsFarAsTheyGo) {
    const std::string texts[] = {
        repeat("<!-- > -->", 1000) + named(9, "\xC3\xA9"),
        named(9, repeat("x", 10 << 20)),
        named(9, "a") + repeat(" ", 5) + "\xF0",
        change(repeat("<Device Number='12abc' ipAddress='a'/>", 3)),
        change("<Device Number='99999999999' ipAddress='a'/><Device Number='-1'/><Device/>"),
        "\xFF\xFE<",
        "<",
        "&#"};
    for (const std::string& text : texts)
        post(text);
    open();
    close();
    const std::string last = host.documents(EventKindConfig).back();
    EXPECT_THAT(
        last, testing::AllOf(HasSubstr("Number=\"9\""), HasSubstr("Name=\"a\""), HasSubstr("Number=\"12\"")));
    EXPECT_THAT(last, testing::Not(HasSubstr("Number=\"-1\"")));
}

TEST_F(Reliability, ASettingsFileMadeToHarmCountsAsUnreadable) {
    const std::string head = "<?xml version='1.0' encoding='UTF-8'?><Velm Delta='0'>";
    const std::string texts[] = {head + repeat("<a>", 70) + repeat("</a>", 70) + "</Velm>", head + "<a>\xF0",
                                 head + "</Velm>" + std::string(1, '\0') + "x",
                                 std::string((16 << 20) + 1, ' ')};
    for (const std::string& text : texts) {
        host.clear();
        std::FILE* const file = std::fopen(szFileName, "w");
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
        open();
        close();
        EXPECT_THAT(host.log_lines(), ElementsAre(HasSubstr("not readable")));
    }
}

// A child changes the configuration over and over and tells what the host was sent; it is killed at
// some instant, and the next child goes on.
TEST_F(Reliability, AKilledProcessLeavesAFileNoOlderThanWhatTheHostGot) {
    std::mt19937 random(1);
    int told = 0;
    const int kills = std::getenv("PLENDIX_TORTURE") != nullptr ? 1000 : 100;
    for (int kill_number = 0; kill_number < kills; ++kill_number) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            for (int number = told + 1;; ++number) {
                TiXmlDocument document;
                document.Parse(named(1, std::to_string(number)).c_str());
                host.plugin().UpdateConfig(document);
                if (write(ends[1], &number, sizeof(number)) < 0) _exit(1);
            }
        }
        ::close(ends[1]);
        ASSERT_EQ(read(ends[0], &told, sizeof(told)), ssize_t{sizeof(told)});
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        ::kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        while (read(ends[0], &told, sizeof(told)) > 0) {
        }
        ::close(ends[0]);
        TiXmlDocument saved;
        ASSERT_TRUE(saved.LoadFile(szFileName)) << "kill " << kill_number;
        std::string text;
        text << saved;
        const std::size_t name = text.find("Name=\"", text.find("<Input"));
        ASSERT_NE(name, std::string::npos);
        ASSERT_GE(std::atoi(text.c_str() + name + 6), told);
    }
}

// Whatever a value holds, the document that carries it is read back as it was sent.
TEST_F(Reliability, ValuesOfAnyKindSurviveARestart) {
    const std::string values[] = {"Caf&#233;",  "Caf\xE9",
                                  "\xC3\xA9",   "\xF0",
                                  "&#1;&#9;",   "&amp;#x&quot;&gt;&lt;a",
                                  "&amp;#x41;", "&lt;&gt;&amp;&quot;&apos;"};
    std::string devices;
    for (std::size_t i = 0; i < std::size(values); ++i)
        devices += "<Device Number='" + std::to_string(i + 1) + "' ipAddress='" + values[i] +
                   "'><Video><Input Number='0' Name='" + values[i] + "'><OSD a='" + values[i] + "'>" +
                   values[i] + "</OSD></Input></Video></Device>";
    post(change(devices + "<Device Number='99' Enabled='0'/>"));  // the last without an address
    open();
    close();
    const std::string before = host.documents(EventKindConfig).back();
    EXPECT_THAT(before, testing::AllOf(HasSubstr("Number=\"8\""), HasSubstr("Number=\"99\"")));
    open();
    close();
    EXPECT_EQ(host.documents(EventKindConfig).back(), before);
}

class Streaming : public Reliability {
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
            devices +=
                "<Device Number='" + std::to_string(number) + "' Enabled='1' ipAddress='" + config.address +
                "'><Codec><Encoder><Channel Number='0' Width='64' Height='32' Standard='0' Framerate='20'/>"
                "</Encoder></Codec></Device>";
        }
        if (!fleet) {
            fleet = std::make_unique<camera::Fleet>(cameras);
            fleet->start();
        }
        post(change(devices));
        open();
    }
    bool frames_from(std::size_t cameras) {
        return host.wait_for(
            [&](auto& h) {
                std::set<std::uint32_t> sources;
                for (const RecordedEvent& frame : h.frames())
                    sources.insert(frame.record.SourceId);
                return sources.size() >= cameras;
            },
            30s);
    }
    std::unique_ptr<camera::Fleet> fleet;
};

TEST_F(Streaming, CloseReturnsWithinASecondFromEveryState) {
    stream(0, 255);
    EXPECT_LT(close(), 1s);  // identifying
    stream(0, 255);
    EXPECT_TRUE(frames_from(255));
    for (std::size_t camera = 0; camera < 255; ++camera)
        fleet->inject(
            camera, camera::parse_fault(camera % 2 == 0 ? "silent" : "loss", camera % 2 == 0 ? "60s" : "5%"));
    std::atomic<bool> storming{true};
    std::thread storm([&] {  // as fast as the queue takes them
        while (storming)
            post(change("<Device Number='3'/><Device Number='4'/>"));
    });
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
        EXPECT_TRUE(frames_from(2));
        std::for_each(taken.begin(), taken.end(), [](int descriptor) { ::close(descriptor); });
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        EXPECT_TRUE(frames_from(8));
        close();
        std::remove(szFileName);
    }
}

TEST_F(Streaming, ACallbackMayBeSlowAndPostDocuments) {
    static CPlugin* plugin = nullptr;
    static std::atomic<unsigned> frames, lines;
    plugin = &host.plugin();
    plugin->EventCallback = [](_EventParmsIn* in, _EventParmsOut*) {
        lines += in->Kind == EventKindLog ? 1 : 0;
        if (in->Kind != EventKindVideo) return 0;
        if (++frames % 10 == 0) std::this_thread::sleep_for(500ms);
        const std::string text = change("<Device Number='1'/>");
        _IOCTLParmsIn config = {0, 0, 2, {}, static_cast<std::uint32_t>(text.size()), text.data()};
        _IOCTLParmsOut queued = {};
        _WriteParmsIn command = {0, 0, 0, 0, {}, config.DataLength, text.data(), 5};
        _WriteParmsOut written = {};
        return plugin->IOCTL(&config, &queued) + plugin->Write(&command, &written);
    };
    stream(4, 4);
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
    stream(1, 2);
    close();
    const auto descriptors = count("/proc/self/fd");
    const auto threads = count("/proc/self/task");
    for (int life = 0; life < 200; ++life) {
        host.clear();
        stream(1, 2);
        if (life % 20 == 0) {
            EXPECT_TRUE(frames_from(2));
        }
        close();
    }
    EXPECT_EQ(count("/proc/self/fd"), descriptors);
    EXPECT_EQ(count("/proc/self/task"), threads);
}

TEST_F(Streaming, ABurstOfDocumentsLosesNoneAndTheCamerasGoOn) {
    stream(2, 2);
    EXPECT_TRUE(frames_from(2));
    for (int number = 1; number <= 5000; ++number)
        post(named(200, std::to_string(number)));
    EXPECT_TRUE(host.wait_for(
        [](auto& h) {
            const auto documents = h.documents(EventKindConfig);
            return documents.back().find("Name=\"5000\"") != std::string::npos;
        },
        50s));
    host.clear();
    EXPECT_TRUE(frames_from(2));
    close();
}

}  // namespace
}  // namespace plendix
