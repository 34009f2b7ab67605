// The built library as a host has it: loaded at run time, driven through its exports.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "camera/decoder.h"
#include "camera/fleet.h"
#include "support/folder.h"
#include "support/host.h"

namespace plendix {
namespace {

using camera::test::Bytes;
using testing::HasSubstr;

TEST(Library, ExportsItsEightFunctionsOnly) {
    FILE* const output =
        popen("nm -D --defined-only " PLENDIX_LIBRARY " | cut -d' ' -f3 | sort | tr '\\n' ' '", "r");
    char names[4096] = {};
    EXPECT_GT(fread(names, 1, sizeof(names) - 1, output), 0U);
    EXPECT_EQ(pclose(output), 0);
    EXPECT_STREQ(names, "Close IOCTL Load Open Read Seek Unload Write ");
}

class LoadedLibrary : public testing::Test {
protected:
    template <class Function>
    Function function(const char* name) const {
        return reinterpret_cast<Function>(dlsym(library, name));
    }
    void configure(int number, const std::string& attributes, const std::string& channel) {
        const std::string text = "<Velm Delta='1'><Devices ID='2162688'><Device Number='" +
                                 std::to_string(number) + "' " + attributes +
                                 "><Codec><Encoder><Channel Number='0' Width='640' Height='480' " + channel +
                                 "/></Encoder></Codec></Device></Devices></Velm>";
        _IOCTLParmsIn in = {0, 0, 2, {}, static_cast<std::uint32_t>(text.size()), text.data()};
        _IOCTLParmsOut out = {};
        function<IOCTLFunction>("IOCTL")(&in, &out);
    }
    std::vector<Bytes> frames(std::uint32_t source, std::uint32_t type) const {
        std::vector<Bytes> found;
        for (const RecordedEvent& event : host.frames())
            if (event.record.SourceId == source && event.record.DataType == type)
                found.emplace_back(event.data.begin(), event.data.end());
        return found;
    }
    void expect_frames(std::uint32_t source, std::uint32_t type, std::size_t count) {
        EXPECT_TRUE(host.wait_for([&](auto&) { return frames(source, type).size() >= count; }));
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
    std::vector<camera::Config> cameras(2);
    cameras[0].address =
        "127.31." + std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
    cameras[1].address = cameras[0].address.replace(5, 1, "2");
    cameras[0].address.replace(5, 1, "1");
    for (camera::Config& camera : cameras)
        camera.sensor_width = 640, camera.sensor_height = 480;
    camera::Fleet fleet(cameras);
    fleet.keep_originals(1);
    fleet.start();
    ASSERT_NE(library, nullptr) << dlerror();
    _LoadParmsIn load = {0, 0, 0, host.plugin().EventCallback};
    _LoadParmsOut loaded = {};
    _OpenParmsOut opened = {};
    _CloseParmsOut closed = {};
    function<LoadFunction>("Load")(&load, &loaded);
    function<OpenFunction>("Open")(nullptr, &opened);
    configure(1, "Enabled='1' ipAddress='" + cameras[0].address + "'", "Standard='0'");
    configure(2, "Enabled='1' ipAddress='" + cameras[1].address + "'", "Standard='5'");
    expect_frames(0x210100, DataTypeJpeg, 5);
    expect_frames(0x210200, DataTypeH264, 5);

    fleet.set_trigger(0, true);
    expect_event("<Device Number=\"1\"><Trigger><Input Number=\"0\" Alarm=\"1\" ");
    const std::string text =
        "<Velm><Devices ID='2162688'><Device Number='2'><Trigger><Output Number='0' Action='1' "
        "Alarm='1' Time='0' Milliseconds='0'/></Trigger></Device></Devices></Velm>";
    _WriteParmsIn write = {0, 0, 0, 0, {}, static_cast<std::uint32_t>(text.size()), text.data(), 5};
    _WriteParmsOut written = {};
    function<WriteFunction>("Write")(&write, &written);
    expect_event("<Device Number=\"2\"><Trigger><Output Number=\"0\" Alarm=\"1\" ");
    EXPECT_TRUE(host.wait_for([&](auto&) { return fleet.relay(1) == 0; }));

    configure(1, "", "Standard='5'");
    expect_frames(0x210100, DataTypeH264, 5);
    configure(2, "ipAddress=''", "");
    EXPECT_TRUE(host.wait_for([](auto& h) {
        return h.documents(EventKindConfig).back().find("Device Number=\"2\"") == std::string::npos;
    }));
    const std::vector<Bytes> second = frames(0x210200, DataTypeH264);
    expect_frames(0x210100, DataTypeH264, 10);
    EXPECT_EQ(frames(0x210200, DataTypeH264), second);  // not one after the removal
    function<CloseFunction>("Close")(nullptr, &closed);
    function<UnloadFunction>("Unload")(nullptr, nullptr);
    fleet.stop();

    for (const auto& [source, type] :
         {std::pair{0x210100U, DataTypeJpeg}, {0x210100U, DataTypeH264}, {0x210200U, DataTypeH264}}) {
        const std::vector<Bytes> pictures = frames(source, type);
        const auto decoded = camera::test::decode(type == DataTypeJpeg ? "mjpeg" : "h264", pictures);
        ASSERT_EQ(decoded.size(), pictures.size());
        EXPECT_EQ(decoded.back().width, 640);
        EXPECT_EQ(decoded.back().height, 480);
    }
    auto originals = camera::test::decode("h264", fleet.originals(1));
    originals.resize(second.size());
    EXPECT_TRUE(camera::test::decode("h264", second) == originals);  // bit by bit
    EXPECT_THAT(host.log_lines(), testing::Each(HasSubstr(" receiving video")));
}

}  // namespace
}  // namespace plendix
