// What a stream sends to the host, with its times, on a calendar clock that the test sets. The
// program's own clock_gettime takes the place of the C library's, under the name in the headers.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

#include "input/input.h"
#include "support/host.h"

namespace {

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
    time->tv_nsec = 123999999;
    return 0;
}

namespace plendix {
namespace {

TEST(Clock, FramesAndDocumentsCarryTimesAfterJanuary2038) {
    const std::pair<std::uint32_t, std::string> cases[] = {
        {2147483647, "2147483647"}, {2147483648, "-2147483648"}, {4102444800, "-192522496"}};
    const std::regex device(
        "<\\?xml \\?><Velm><Devices ID=\"2162688\"><Device Number=\"255\">(.*)</Device></Devices></Velm>");
    for (const auto& [seconds, attribute] : cases) {
        calendar_seconds = seconds;
        RecordingHost host;
        CInput input(255, 0);
        input.m_Actions = {{1, -1},
                           {2, 62135596800000 + seconds * std::int64_t{1000} + 123}};  // the 2nd ends
        char frame[] = "frame";
        input.FireVideo(frame, 5, 64, FrameTypeDelta, true, nullptr, 24);
        EXPECT_EQ(input.m_Actions.size(), 1U);
        input.Reset();
        std::vector<std::string> sent;
        for (const RecordedEvent& event : host.events())
            sent.push_back(std::regex_replace(event.data, device, "$1"));
        const std::string time = "Time=\"" + attribute + "\"";
        const std::string channel = "<Codec><Encoder Number=\"0\"><Channel Number=\"0\" Connected=";
        EXPECT_THAT(sent,
                    testing::ElementsAre(channel + "\"1\" " + time + " /></Encoder></Codec>",
                                         "<?xml ?><log_msg level=\"25\">Camera receiving video</log_msg>",
                                         "<Video><Input Number=\"0\" Motion=\"1\" " + time +
                                             " Milliseconds=\"123\" Context=\"0\" /></Video>",
                                         "frame", channel + "\"0\" " + time + " /></Encoder></Codec>"));
        const auto frames = host.frames();
        const _EventParmsIn& in = frames.at(0).record;
        EXPECT_TRUE(in.Data == frame && in.FrameSeconds == seconds && in.FrameMilliseconds == 123);
        EXPECT_EQ((std::vector<std::size_t>{in.Size, in.Version, in.SourceId, in.Kind, in.DataType,
                                            in.DataLength, in.VideoSize, in.VideoVersion, in.FrameType,
                                            in.FrameFlags, in.MotionLength}),
                  (std::vector<std::size_t>{sizeof(in), 1, 0x21FF00, 1, 0x1000040, 5, 152, 1, 2, 0xC0, 0}));
    }
    calendar_seconds = 0;
}

}  // namespace
}  // namespace plendix
