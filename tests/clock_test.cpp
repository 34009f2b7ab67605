// What a stream sends to the host, with its times.
#include "support/scripted_camera.h"

namespace plendix {
namespace {

using Clock = Bench;

TEST_F(Clock, FramesAndDocumentsCarryTimesAfterJanuary2038) {
    const std::pair<std::uint32_t, std::string> cases[] = {
        {2147483647, "2147483647"}, {2147483648, "-2147483648"}, {4102444800, "-192522496"}};
    const std::regex envelope(
        "<\\?xml \\?><Velm><Devices ID=\"2162688\"><Device Number=\"255\">(.*)</Device></Devices></Velm>");
    for (const auto& [seconds, attribute] : cases) {
        calendar = seconds * std::int64_t{1000} + 123;
        host.clear();
        CInput input(255, 0);
        input.m_Actions = {{1, -1}, {2, 62135596800000 + calendar}};  // the 2nd ends
        char frame[] = "frame";
        input.FireVideo(frame, 5, 64, FrameTypeDelta, true, nullptr, 24);
        EXPECT_EQ(input.m_Actions.size(), 1U);
        input.Reset();
        std::vector<std::string> sent;
        for (const RecordedEvent& event : host.events())
            sent.push_back(std::regex_replace(event.data, envelope, "$1"));
        const std::string time = "Time=\"" + attribute + "\"";
        const std::string channel = "<Codec><Encoder Number=\"0\"><Channel Number=\"0\" Connected=";
        EXPECT_THAT(sent,
                    testing::ElementsAre(channel + "\"1\" " + time + " /></Encoder></Codec>",
                                         "<?xml ?><log_msg level=\"25\">Camera receiving video</log_msg>",
                                         "<Video><Input Number=\"0\" Motion=\"1\" " + time +
                                             " Milliseconds=\"123\" Context=\"0\" /></Video>",
                                         "frame", channel + "\"0\" " + time + " /></Encoder></Codec>"));
        const _EventParmsIn in = host.frames().at(0).record;
        EXPECT_TRUE(in.Data == frame && in.FrameSeconds == seconds && in.FrameMilliseconds == 123);
        EXPECT_EQ((std::vector<std::size_t>{in.Size, in.Version, in.SourceId, in.Kind, in.DataType,
                                            in.DataLength, in.VideoSize, in.VideoVersion, in.FrameType,
                                            in.FrameFlags, in.MotionLength}),
                  (std::vector<std::size_t>{sizeof(in), 1, 0x21FF00, 1, 0x1000040, 5, 152, 1, 2, 0xC0, 0}));
    }
}

}  // namespace
}  // namespace plendix
