// Cameras with every kind of fault, by a fixed seed, for as long as PLENDIX_SOAK_SECONDS says (10):
// afterwards every camera delivers again, and both sides have counted the same pictures. Whole
// minutes of it are recorded by scripts/soak.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>

#include "support/calls.h"
#include "support/folder.h"
#include "support/small_cameras.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using camera::Counters;

constexpr auto recovery_limit = 25s;  // a stalled transfer takes 10 s, a silent camera another 15
constexpr std::size_t most_cameras = 255;

long setting(const char* name, long otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtol(text, nullptr, 10);
}

/// Pictures by camera, as the callback counts them.
std::array<std::atomic<std::uint64_t>, most_cameras + 1> delivered{};

int count(_EventParmsIn* in, _EventParmsOut*) {
    if (in->Kind == EventKindVideo) ++delivered.at(in->SourceId >> 8 & 0xFF);
    return 0;
}

/// Rates for all cameras, and for each camera silence and restarts at times of its own; all is over
/// when the time is.
camera::Behaviour make_behaviour(std::size_t cameras, std::chrono::milliseconds time) {
    camera::Behaviour behaviour;
    behaviour.seed = 1;
    behaviour.faults = camera::parse_faults(
        "loss=0.1%,ack-loss=0.02%,duplicate=0.2%,reorder=0.1%,delay=0.2%/300ms,corrupt=0.1%,truncate=0.05%,"
        "garbage=0.1%,foreign=0.05%,wrong-block=0.05%,mac-change=0.01%");
    std::mt19937 random(1);
    std::uniform_int_distribution<long> moments(0, (time * 9 / 10).count());
    const auto at = [&] { return std::chrono::milliseconds(moments(random)); };
    for (std::size_t i = 0; i < cameras; ++i) {
        for (auto rest = time; rest > 0ms; rest -= 120s) {
            behaviour.scenario.push_back({at(), i, camera::parse_fault("silent", i % 2 == 0 ? "1s" : "12s")});
            behaviour.scenario.push_back({at(), i, camera::parse_fault("reboot", "2s")});
        }
        for (camera::Fault fault : behaviour.faults) {
            fault.rate = 0;
            behaviour.scenario.push_back({time, i, fault});
        }
    }
    return behaviour;
}

/// The cameras in a process of their own, so that this one's memory is the driver's.
class Cameras {
public:
    Cameras(std::size_t cameras, std::chrono::milliseconds time)
        : configs_(small_cameras(1, cameras)), counters_(cameras) {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_) != 0 || (child_ = fork()) < 0)
            throw std::runtime_error("no process");
        ::close(ends_[child_ == 0 ? 0 : 1]);
        if (child_ == 0) serve(cameras, time);
    }
    ~Cameras() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    std::string address(std::size_t index) const { return configs_[index].address; }

    const std::vector<Counters>& counters() {
        EXPECT_EQ(send(ends_[0], "?", 1, MSG_NOSIGNAL), 1) << "the cameras are gone";
        for (Counters& each : counters_)
            EXPECT_EQ(read(ends_[0], &each, sizeof(each)), ssize_t{sizeof(each)});
        return counters_;
    }

private:
    [[noreturn]] void serve(std::size_t cameras, std::chrono::milliseconds time) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            camera::Fleet fleet(configs_, make_behaviour(cameras, time));
            fleet.start();
            char order = 0;
            while (read(ends_[1], &order, 1) == 1)
                for (std::size_t i = 0; i < cameras; ++i) {
                    counters_[i] = fleet.counters(i);
                    send(ends_[1], &counters_[i], sizeof(Counters), MSG_NOSIGNAL);
                }
        } catch (const std::exception& error) {
            std::fprintf(stderr, "cameras: %s\n", error.what());
        }
        _exit(0);
    }

    const std::vector<camera::Config> configs_;
    int ends_[2] = {};  // of this process and the cameras'
    pid_t child_ = 0;
    std::vector<Counters> counters_;
};

long resident_kilobytes() {
    std::ifstream file("/proc/self/statm");
    long size = 0, resident = 0;
    file >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(Soak, EveryCameraComesBackAndBothSidesCountTheSame) {
    const auto cameras = static_cast<std::size_t>(setting("PLENDIX_SOAK_CAMERAS", 40));
    const std::chrono::seconds time(setting("PLENDIX_SOAK_SECONDS", 10));
    const char* const log = std::getenv("PLENDIX_SOAK_LOG");
    std::ofstream samples(log != nullptr ? log : "/dev/null");
    const TemporaryFolder folder;
    Cameras fleet(cameras, time);
    load(count);
    std::string devices;
    for (std::size_t i = 0; i < cameras; ++i)
        devices += device(
            static_cast<int>(i + 1), fleet.address(i),
            "Width='320' Height='240' Framerate='2' Standard='" + std::string(i % 2 == 0 ? "0'" : "5'"));
    post(change(devices));
    open();

    std::vector<long> resident;
    const auto start = Clock::now();
    for (auto next = start; next < start + time; next += 1s) {
        std::this_thread::sleep_until(next);
        std::uint64_t frames = 0;
        for (const auto& camera : delivered)
            frames += camera;
        resident.push_back(resident_kilobytes());
        samples << (next - start) / 1s << ' ' << resident.back() << ' ' << frames << std::endl;
    }
    if (time >= 5min) {
        EXPECT_LE(resident.back(), resident.at(resident.size() / 5) + 1024) << "memory grows";
    }
    std::array<std::uint64_t, most_cameras + 1> before{};
    std::copy(delivered.begin(), delivered.end(), before.begin());
    const auto end = Clock::now();
    for (std::size_t i = 1; i <= cameras; ++i) {
        while (delivered.at(i) == before.at(i) && Clock::now() < end + recovery_limit)
            std::this_thread::sleep_for(10ms);
        EXPECT_GT(delivered.at(i), before.at(i)) << "camera " << i;
    }
    samples << "all again after " << (Clock::now() - end) / 1ms << " ms" << std::endl;
    close();
    unload();

    const std::vector<Counters>& counters = fleet.counters();
    for (std::size_t i = 1; i <= cameras; ++i) {
        const std::uint64_t sent = counters[i - 1].frames, lost = counters[i - 1].frames_lost;
        const std::uint64_t got = delivered.at(i);
        samples << "camera " << i << " sent " << sent << " lost " << lost << " delivered " << got << '\n';
        EXPECT_LE(got, sent) << "camera " << i;
        EXPECT_GE(got + 1, sent) << "camera " << i;  // one may have been on its way to the end
    }
}

}  // namespace
}  // namespace plendix
