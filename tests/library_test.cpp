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

class LoadedLibrary : public testing::Test {
protected:
    template <class Function, class In, class Out>
    void call(const char* name, In in, Out out) {
        reinterpret_cast<Function>(dlsym(library, name))(&in, &out);
    }
    void configure(const std::string& device, const std::string& standard) {
        const std::string text =
            "<Velm Delta='1'><Devices ID='2162688'><Device Number=" + device +
            "><Codec><Encoder><Channel Number='0' Width='640' Height='480' Standard=" + standard +
            "/></Encoder></Codec></Device></Devices></Velm>";
        const auto length = static_cast<std::uint32_t>(text.size());
        call<IOCTLFunction>("IOCTL", _IOCTLParmsIn{0, 0, 2, {}, length, text.data()}, _IOCTLParmsOut{});
    }
    /// The frames of a camera in one format, when there are so many.
    Pictures frames(std::uint32_t camera, std::uint32_t type, std::size_t count) {
        Pictures found;
        EXPECT_TRUE(host.wait_for(
            [&](auto& h) {
                found.clear();
                for (const RecordedEvent& event : h.frames())
                    if (event.record.SourceId == PluginId + camera * 256 && event.record.DataType == type)
                        found.emplace_back(event.data.begin(), event.data.end());
                return found.size() >= count;
            },
            std::chrono::seconds(20)));
        return found;
    }
    TemporaryFolder folder;
    RecordingHost host;
    void* const library = dlopen(PLENDIX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
};

TEST_F(LoadedLibrary, StreamsBothCodecs) {
    const std::string net = std::to_string(getpid() >> 8 & 0xFF) + "." + std::to_string(getpid() & 0xFF);
    camera::Config jpeg{"127.34." + net}, h264{"127.35." + net};
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
    const Pictures jpegs = frames(1, DataTypeJpeg, 5), pictures = frames(2, DataTypeH264, 5);
    configure("'1'", "'5'");
    frames(1, DataTypeH264, 5);
    call<CloseFunction>("Close", _CloseParmsIn{}, _CloseParmsOut{});
    call<UnloadFunction>("Unload", _UnloadParmsIn{}, _UnloadParmsOut{});
    fleet.stop();
    EXPECT_EQ(camera::test::decode("mjpeg", jpegs).size(), jpegs.size());
    auto originals = camera::test::decode("h264", fleet.originals(1));
    originals.resize(pictures.size());
    EXPECT_TRUE(camera::test::decode("h264", pictures) == originals);  // bit by bit
    EXPECT_THAT(host.log_lines(), testing::Each(HasSubstr(" receiving video")));
}

}  // namespace
}  // namespace plendix
