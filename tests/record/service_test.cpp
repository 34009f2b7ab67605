// The command as shells, terminals and service managers start, ask and end it.
#include <fcntl.h>
#include <sys/un.h>

#include <csignal>

#include "host/process_state.h"
#include "host/service_notice.h"
#include "host/signals.h"
#include "record/decode_check.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/folder.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Command : public CameraBench {
    TemporaryFolder folder_;
};

TEST_F(Command, RecordsWholeFilesWithoutStandardDescriptorsAndWithPipesThatNobodyReads) {
    int pipe_ends[2], full[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    close(pipe_ends[0]);
    ASSERT_EQ(pipe2(full, O_CLOEXEC | O_NONBLOCK), 0);
    while (write(full[1], "x", 1) == 1)
        continue;
    fcntl(full[1], F_SETFL, 0);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    start(sensor(640, 480));
    const std::tuple<const char*, int, int, int> cases[] = {{"closed", -1, -1, SIGTERM},
                                                            {"broken", pipe_ends[1], -1, SIGHUP},
                                                            {"full", nowhere, full[1], SIGTERM}};
    for (const auto& [folder, output, error, signal] : cases) {
        const std::uint64_t before = fleet->counters(0).frames;
        const pid_t child = start_command(
            {"plendix", "record", own_address(1), "--plugin", PLENDIX_LIBRARY, "--output", folder}, output,
            error);
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (fleet->counters(0).frames < before + 20 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        for (const char* standard : {"0", "2"}) {  // 1 is the log
            const fs::path link = "/proc/" + std::to_string(child) + "/fd/" + standard;
            EXPECT_TRUE(output >= 0 || fs::read_symlink(link) == "/dev/null");
        }
        kill(child, signal);
        if (signal == SIGHUP) kill(child, signal);  // the shell's and the terminal's
        EXPECT_EQ(exit_code(child), 0) << folder;
        EXPECT_THAT(text(fs::path(folder) / "driver.log"), HasSubstr("sensor 640x480"));
        std::uint64_t frames = 0;
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (entry.path().extension() != ".mkv") continue;
            EXPECT_THAT(text(entry.path()), testing::Not(HasSubstr("sensor 640x480")));
            const DecodeResult result = check_file(entry.path());
            EXPECT_TRUE(result.clean()) << result.first_fault;
            frames += result.packets;
        }
        EXPECT_GE(frames, 19U) << folder;
    }
    for (const int descriptor : {pipe_ends[1], full[0], full[1], nowhere})
        close(descriptor);
}

TEST_F(Command, NamesWhatItDoesNotKnow) {
    const std::tuple<std::vector<std::string>, int, const char*> cases[] = {
        {{"plendix", "recrod"}, 2, "plendix: 'recrod' is no command: did you mean 'record'?\n"},
        {{"plendix", "xyz"}, 2, "'xyz' is no command: give "},
        {{"plendix", "--version"}, 0, "plendix 9.2.3\n"},
        {{"plendix", "demo", "--address", "192.168.1.1"}, 2, "from 127.0.0.1 to"}};
    for (const auto& [words, code, said] : cases) {
        const int file = open("said", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        EXPECT_EQ(exit_code(start_command(words, file)), code);
        close(file);
        EXPECT_THAT(text("said"), HasSubstr(said));
    }
}

/// Where a service manager would listen.
struct Manager {
    explicit Manager(std::string address) {
        setenv("NOTIFY_SOCKET", address.c_str(), 1);
        sockaddr_un to{};
        to.sun_family = AF_UNIX;
        if (address[0] == '@') address[0] = '\0';
        address.copy(to.sun_path, sizeof to.sun_path);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&to), size), 0);
    }
    ~Manager() {
        close(socket_);
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
    }
    /// The next message, or nothing.
    std::string next() const {
        std::string message(1000, '\0');
        const auto size = recv(socket_, message.data(), message.size(), MSG_DONTWAIT);
        return message.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
    }
    int socket_ = socket(AF_UNIX, SOCK_DGRAM, 0);
};

TEST(ServiceNotice, TellsTheManagerAndFeedsItsWatchdogWhileTheDriverPasses) {
    const TemporaryFolder folder;
    for (const std::string& address : {fs::absolute("notify").string(), "@" + fs::absolute("n").string()}) {
        const Manager manager(address);
        setenv("WATCHDOG_USEC", "30000000", 1);
        setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
        ServiceNotice notice;
        notice.ready("2 cameras,\nall live");
        EXPECT_EQ(manager.next(), "READY=1\nSTATUS=2 cameras, all live");
        notice.reloading();
        EXPECT_THAT(manager.next(), testing::MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+"));
        notice.status("2 cameras,\nall live");  // which is known
        notice.status("1 of 2 cameras live");
        EXPECT_EQ(manager.next(), "STATUS=1 of 2 cameras live");
        notice.reloaded();
        EXPECT_EQ(manager.next(), "READY=1\nSTATUS=1 of 2 cameras live");
        notice.stopping();
        EXPECT_EQ(manager.next(), "STOPPING=1");
        const ServiceNotice::Time start = std::chrono::steady_clock::now() + 1h;
        std::string fed;  // the seconds at which it was
        for (int second = 0; second < 60; ++second) {
            notice.alive_if(second < 25 || second == 57, start + std::chrono::seconds(second));
            if (manager.next() == "WATCHDOG=1") fed += std::to_string(second) + ' ';
        }
        EXPECT_EQ(fed, "0 10 20 30 57 ") << "what passed at 24 counts at 30, then nothing";
        setenv("WATCHDOG_PID", "1", 1);
        EXPECT_EQ(ServiceNotice().watchdog(), 0s) << "another's";
    }
    ServiceNotice().ready("nobody listens");
}

TEST(ProcessState, KeepsTheLogSmallAndCountsWhoAsksToStop) {
    const TemporaryFolder folder;
    std::ofstream("log") << "before\n";
    {
        OutputToFile log("log");
        std::puts("one");
        log.rotate_if_large(10);
        std::puts("two");
        log.rotate_if_large(10);
        fs::remove("log");
        log.rotate_if_large(10);
        std::puts("three");
    }
    EXPECT_EQ(text("log.1") + text("log"), "before\none\nthree\n");

    StopSignals signals(StopSignals::Again::counts, StopSignals::HangUp::reloads);
    raise(SIGHUP);
    EXPECT_TRUE(signals.take_reload());
    EXPECT_FALSE(signals.take_reload() || signals.requested());
    raise(SIGINT), raise(SIGTERM);
    EXPECT_EQ(signals.count(), 2);
}

}  // namespace
}  // namespace plendix::camera::test
