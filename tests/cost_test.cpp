// What a block and a frame cost: system calls and allocations. Link options put the functions below in
// front of the C library's (--wrap).
#include <gmock/gmock.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "device/device.h"
#include "platform/clock.h"
#include "support/allocations.h"
#include "support/calls.h"
#include "support/folder.h"
#include "support/host.h"
#include "support/small_cameras.h"

namespace {

struct Counts {
    long selects = 0, receptions = 0, acknowledgements = 0, requests = 0, other_calls = 0, allocations = 0;
};
// Only of the thread that runs the plug-in, and only while it does: the cameras have theirs.
thread_local Counts counts;
thread_local bool counting = false;

void count(long Counts::*member) {
    if (counting) ++(counts.*member);
}

}  // namespace

void before_allocation() {
    count(&Counts::allocations);
}

#define COUNTED(member, result, name, parameters, arguments) \
    result __real_##name parameters;                         \
    result __wrap_##name parameters {                        \
        count(member);                                       \
        return __real_##name arguments;                      \
    }

extern "C" {
COUNTED(&Counts::other_calls, int, socket, (int domain, int type, int protocol), (domain, type, protocol))
COUNTED(&Counts::other_calls, int, close, (int fd), (fd))
COUNTED(&Counts::other_calls, int, fsync, (int fd), (fd))
COUNTED(&Counts::other_calls, int, rename, (const char* from, const char* to), (from, to))
COUNTED(&Counts::other_calls, int, nanosleep, (const timespec* time, timespec* rest), (time, rest))
COUNTED(&Counts::other_calls, int, puts, (const char* text), (text))
COUNTED(&Counts::other_calls, void*, mmap,
        (void* at, size_t size, int protection, int flags, int fd, off_t from),
        (at, size, protection, flags, fd, from))
COUNTED(&Counts::receptions, ssize_t, recvfrom,
        (int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length),
        (fd, data, size, flags, from, length))
COUNTED(&Counts::selects, int, select,
        (int highest, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout),
        (highest, reads, writes, excepts, timeout))
COUNTED(size == 4 ? &Counts::acknowledgements : &Counts::requests, ssize_t, sendto,
        (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length),
        (fd, data, size, flags, to, length))
}

namespace plendix {
namespace {

// The worker's loop, pass by pass on the test's own thread.
TEST(Cost, TwoSystemCallsForABlockAndNoAllocation) {
    const TemporaryFolder folder;
    RecordingHost host;
    CPlugin& plugin = host.plugin();
    static long frames[4];  // of the cameras 1 and 2
    ConnectHost([](_EventParmsIn* in, _EventParmsOut*) {
        if (in->Kind == EventKindVideo) ++frames[in->SourceId >> 8 & 3];
        return 0;
    });
    long passes = 0;
    const auto run_until_frames = [&](long wanted) {  // of each camera
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (; std::min(frames[1], frames[2]) < wanted; ++passes) {
            if (std::chrono::steady_clock::now() >= end) return false;
            host.serve();
            for (auto& camera : plugin.m_Devices)  // neither polls of the trigger input nor of the relay
                camera->m_dwPollTime = camera->m_dwOutputTime = timeGetTime();
            counting = true;
            plugin.CheckDevices();
            counting = false;
        }
        return true;
    };
    const std::vector<camera::Config> cameras = small_cameras(3, 2);
    std::string devices;
    for (const int number : {1, 2})  // H.264, JPEG; without a zone that reports motion
        devices +=
            device(number, cameras[static_cast<std::size_t>(number - 1)].address,
                   "Standard='" + std::to_string(2 - number) +
                       "' Width='320' Height='240' Framerate='1001' Mask='" + std::string(32, ' ') + "'");
    camera::Fleet fleet(cameras);
    fleet.start();
    post(change(devices));
    ASSERT_TRUE(run_until_frames(5));
    counts = Counts();
    passes = 0;
    const long h264_before = frames[1], jpeg_before = frames[2];
    ASSERT_TRUE(run_until_frames(75));
    const long all = frames[2] - jpeg_before + frames[1] - h264_before;
    EXPECT_EQ(counts.selects, passes);
    EXPECT_GT(counts.receptions, 2 * all) << "too few blocks to say anything";
    EXPECT_EQ(counts.acknowledgements, counts.receptions);
    EXPECT_NEAR(static_cast<double>(counts.requests), static_cast<double>(all), 2);  // one a camera
    EXPECT_EQ(counts.other_calls, 0);
    EXPECT_EQ(counts.allocations, 0);
}

}  // namespace
}  // namespace plendix
