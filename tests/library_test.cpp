// The built library as a host has it: loaded at run time, driven through its exports.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "camera/decoder.h"
#include "camera/fleet.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

using testing::HasSubstr;
using Pictures = std::vector<camera::test::Bytes>;

// A document of the host's about one camera.
std::string device(const std::string& content) {
    return "<Velm Delta='1'><Devices ID='2162688'><Device " + content + "</Device></Devices></Velm>";
}

class LoadedLibrary : public testing::Test {
protected:
    template <class Function, class In, class Out>
    void call(const char* name, In in, Out out) {
        reinterpret_cast<Function>(dlsym(library, name))(&in, &out);
    }
    void configure(const std::string& attributes, int standard) {
        const std::string text =
            device(attributes + "><Codec><Encoder><Channel Number='0' Width='640' Height='480' Standard='" +
                   std::to_string(standard) + "'/></Encoder></Codec>");
        const auto length = static_cast<std::uint32_t>(text.size());
        call<IOCTLFunction>("IOCTL", _IOCTLParmsIn{0, 0, 2, {}, length, text.data()}, _IOCTLParmsOut{});
    }
    Pictures frames(std::uint32_t source, std::uint32_t type) const {
        Pictures found;
        for (const RecordedEvent& event : host.frames())
            if (event.record.SourceId == source && event.record.DataType == type)
                found.emplace_back(event.data.begin(), event.data.end());
        return found;
    }
    void expect_frames(std::uint32_t source, std::uint32_t type, std::size_t count) {
        EXPECT_TRUE(host.wait_for([&](auto&) { return frames(source, type).size() >= count; },
                                  std::chrono::seconds(20)));
    }
    void expect_event(const std::string& part) {
        EXPECT_TRUE(host.wait_for([&](auto& h) {
            return testing::Matches(testing::Contains(HasSubstr(part)))(h.documents(EventKindAlarm));
        }));
    }
    TemporaryFolder folder;
    RecordingHost host;
    void* const library = dlopen(PLENDIX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
};

TEST_F(LoadedLibrary, StreamsBothCodecsWithEvents) {
    const std::string net = std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
    camera::Config jpeg, h264;
    jpeg.address = "127.31." + net;
    h264.address = "127.32." + net;
    jpeg.sensor_width = h264.sensor_width = 640;
    jpeg.sensor_height = h264.sensor_height = 480;
    camera::Fleet fleet({jpeg, h264});
    fleet.keep_originals(1);
    fleet.start();
    ASSERT_NE(library, nullptr) << dlerror();
    call<LoadFunction>("Load", _LoadParmsIn{0, 0, 0, host.plugin().EventCallback}, _LoadParmsOut{});
    call<OpenFunction>("Open", _OpenParmsIn{}, _OpenParmsOut{});
    configure("'1' Enabled='1' ipAddress='" + jpeg.address + "'", "'0'");
    configure("'2' Enabled='1' ipAddress='" + h264.address + "'", "'5'");
    expect_frames(0x210100, DataTypeJpeg, 5);
    expect_frames(0x210200, DataTypeH264, 5);
    configure("'1'", "'5'");
    expect_frames(0x210100, DataTypeH264, 5);

    fleet.set_trigger(0, true);
    expect_event("<Device Number=\"1\"><Trigger><Input Number=\"0\" Alarm=\"1\" ");
    const std::string text =
        "<Velm><Devices ID='2162688'><Device Number='2'><Trigger><Output Number='0' Action='1' "
        "Alarm='1' Time='0' Milliseconds='0'/></Trigger></Device></Devices></Velm>";
    const auto length = static_cast<std::uint32_t>(text.size());
    call<WriteFunction>("Write", _WriteParmsIn{0, 0, 0, 0, {}, length, text.data(), 5}, _WriteParmsOut{});
    expect_event("<Device Number=\"2\"><Trigger><Output Number=\"0\" Alarm=\"1\" ");
    EXPECT_TRUE(host.wait_for([&](auto&) { return fleet.relay(1) == 0; }));

    configure("'2' ipAddress=''", "'5'");
    EXPECT_TRUE(host.wait_for([](auto& h) {
        return h.documents(EventKindConfig).back().find("<Device Number=\"2\"") == std::string::npos;
    }));
    const Pictures pictures[] = {frames(0x210100, DataTypeJpeg), frames(0x210100, DataTypeH264),
                                 frames(0x210200, DataTypeH264)};
    expect_frames(0x210100, DataTypeH264, pictures[1].size() + 5);
    EXPECT_EQ(frames(0x210200, DataTypeH264), pictures[2]);  // not one after the removal
    call<CloseFunction>("Close", _CloseParmsIn{}, _CloseParmsOut{});
    call<UnloadFunction>("Unload", _UnloadParmsIn{}, _UnloadParmsOut{});
    fleet.stop();
    for (const Pictures& stream : pictures)
        EXPECT_EQ(camera::test::decode(&stream == pictures ? "mjpeg" : "h264", stream).size(), stream.size());
    auto originals = camera::test::decode("h264", fleet.originals(1));
    originals.resize(pictures[2].size());
    EXPECT_TRUE(camera::test::decode("h264", pictures[2]) == originals);  // bit by bit
    EXPECT_THAT(host.log_lines(), testing::Each(HasSubstr(" receiving video")));
}

}  // namespace
}  // namespace plendix
