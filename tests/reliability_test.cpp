// What must hold whatever comes to be read: documents and settings made to harm, and kills.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "device/device.h"
#include "plugin/Plendix.h"
#include "plugin/settings.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string repeat(const std::string& text, int times) {
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

std::string named(int camera, const std::string& name) {
    return change("<Device Number='" + std::to_string(camera) +
                  "' ipAddress='127.31.99.1'><Video><Input Number='0' Name='" + name +
                  "'/></Video></Device>");
}

class Reliability : public testing::Test {
protected:
    TemporaryFolder folder;
    RecordingHost host;
    CPlugin& plugin = host.plugin();
};

TEST_F(Reliability, TextMadeToExhaustTheStackIsServedUpToThere) {
    const std::string first =  // two cameras
        "<Velm Delta='1'><Devices ID='2162688'><Device Number='7' ipAddress='a'/><Device Number='12abc'/>"
        "<Device Number='99999999999'/><Device Number='-1'/><Device/>";
    const auto attributes = [](int count) {
        std::string element = "<a ";
        while (count-- > 0)
            element += "b" + std::to_string(count) + "='' ";
        return element + "/>";
    };
    const std::pair<const char*, std::string> texts[] = {
        {"nested", repeat("<a>", 100000)},
        {"nested", repeat("<a>&#</a>#65;", 1000)},
        {"nested", repeat("<a><?xml version='></a>'?>", 1000)},
        {"nested", repeat("<a b='/'><!-- </a> --><![CDATA[</a>]]>", 1000)},
        {"attributes", attributes(1001)},
        {"", repeat("<?note x?><a b='&#x000000E9;' c='&#xx41;'/>", 1000)},  // as flat as TinyXML reads them
        {"", repeat("<?xml version='1.0'?>" + attributes(600), 2)},
        {"", repeat("<a b='&#'>'></a>;", 1000)},
        {"", repeat("<!-- > -->", 1000) + repeat(" ", 10 << 20) + "\xF0"},
        {"", "\xFF\xFE<"},
        {"", "</Devices></Velm>&#"},
        {"", std::string(1, '\0') + repeat("<a>", 70)}};
    for (const auto& [problem, text] : texts) {
        std::remove(szFileName);
        host.clear();
        const std::string before = repeat("</a>", *problem == 'n' ? 3000 : 0);  // closes nothing
        post("<?xml version='1.0' encoding='UTF-8'?>" + before + first + text);
        open();
        close();
        const std::vector<std::string> log = host.log_lines();
        EXPECT_EQ(log.size(), *problem != '\0' ? 1U : 0U) << text.substr(0, 30);
        EXPECT_THAT(log, testing::Each(HasSubstr(problem)));
        const std::string config = host.documents(EventKindConfig).back();
        EXPECT_THAT(config, testing::ContainsRegex("<Device Number=\"7\".*<Device Number=\"12\""));
        EXPECT_EQ(config.find("</Device><Device", config.find("Number=\"12")), std::string::npos);
    }
}

TEST_F(Reliability, ASettingsFileMadeToHarmCountsAsUnreadable) {
    const std::string head = "<?xml version='1.0' encoding='UTF-8'?><Velm Delta='0'>";
    const std::pair<const char*, std::string> texts[] = {
        {"nested", head + repeat("<a>", 70) + repeat("</a>", 70) + "</Velm>"},
        {"incomplete character", head + "<a>\xF0\x9F\x98"},
        {"", head + std::string(1, '\0') + "</Velm>"}};
    for (const auto& [problem, text] : texts) {
        host.clear();
        std::ofstream(szFileName) << text;
        open();
        close();
        EXPECT_THAT(host.log_lines(),
                    ElementsAre(testing::ContainsRegex("not readable .*" + std::string(problem))));
    }
    host.clear();
    std::remove(szFileName);
    mkfifo(szFileName, 0600);  // nobody writes
    open();
    close();
    EXPECT_THAT(host.log_lines(), ElementsAre(HasSubstr("not a file")));
}

// A child changes the configuration over and over and tells what the host was sent; it is killed at
// some instant, and the next child goes on.
TEST_F(Reliability, AKilledProcessLeavesAFileNoOlderThanWhatTheHostGot) {
    void* const shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    static auto& told = *new (shared) std::atomic<int>(0);
    static int number;
    ConnectHost([](_EventParmsIn*, _EventParmsOut*) {
        told = number;
        return 0;
    });
    std::mt19937 random(1);
    const int kills = full_torture() ? 1000 : 100;
    for (int kill_number = 0; kill_number < kills; ++kill_number) {
        number = told;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        while (child == 0) {
            TiXmlDocument document;
            document.Parse(named(1, std::to_string(++number)).c_str());
            plugin.UpdateConfig(document);
        }
        while (told == number && waitpid(child, nullptr, WNOHANG) == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        ::kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        TiXmlDocument saved;
        ASSERT_TRUE(saved.LoadFile(szFileName)) << "kill " << kill_number;
        std::string text;
        text << saved;
        const std::size_t name = text.find("Name=\"", text.find("<Input"));
        ASSERT_NE(name, std::string::npos);
        ASSERT_GT(told, number);
        ASSERT_GE(std::atoi(text.c_str() + name + 6), told);
    }
}

}  // namespace
}  // namespace plendix
