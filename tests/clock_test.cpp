// Time stamps beyond January 2038, on a calendar clock that the test sets. The program's own
// clock_gettime takes the place of the C library's, under the name that the headers give it.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

#include "input/input.h"
#include "support/host.h"

namespace {

constexpr auto calendar_millisecond = 123;
std::atomic<std::uint32_t> calendar_seconds{0};

long system_clock() {
#ifdef SYS_clock_gettime64
    if (sizeof(std::time_t) > sizeof(long)) return SYS_clock_gettime64;
#endif
    return SYS_clock_gettime;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (clock != CLOCK_REALTIME || calendar_seconds == 0)
        return static_cast<int>(syscall(system_clock(), clock, time));
    time->tv_sec = static_cast<std::time_t>(calendar_seconds);
    time->tv_nsec = calendar_millisecond * 1000000;
    return 0;
}

namespace plendix {
namespace {

TEST(Clock, FramesAndDocumentsCarryTimesAfterJanuary2038) {
    const std::pair<std::uint32_t, std::string> cases[] = {
        {2147483647, "2147483647"}, {2147483648, "-2147483648"}, {4102444800, "-192522496"}};
    for (const auto& [seconds, attribute] : cases) {
        calendar_seconds = seconds;
        RecordingHost host;
        CInput input(7, 0);
        SetAction(input.m_Actions, 1, 0, 2147483647, 0);  // a recording that has ended
        char frame[] = "frame";
        input.FireVideo(frame, 5, 8, FrameTypeKey, true, nullptr, 0);
        input.Reset();
        ASSERT_EQ(host.frames().size(), 1U);
        EXPECT_EQ(host.frames()[0].record.FrameSeconds, seconds);
        EXPECT_EQ(host.frames()[0].record.FrameMilliseconds, calendar_millisecond);
        EXPECT_EQ(host.frames()[0].record.FrameFlags, FrameFlagMotion);
        const auto documents = host.documents(EventKindAlarm);  // connection, motion, disconnection
        EXPECT_EQ(documents.size(), 3U);
        EXPECT_THAT(documents, testing::Each(testing::HasSubstr("Time=\"" + attribute + "\"")));
    }
    calendar_seconds = 0;
}

}  // namespace
}  // namespace plendix
