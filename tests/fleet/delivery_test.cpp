// Pictures arrive with the samples that the encoder wrote, and stock TFTP clients get the same bytes.
#include <cstdlib>
#include <fstream>

#include "camera/decoder.h"
#include "driver_bench.h"
#include "support/folder.h"

namespace plendix::camera::test {
namespace {

using Driver = DriverBench;

TEST_F(Driver, DeliversWhatTheEncoderWrote) {
    const struct {
        unsigned width, height;  // of the sensor
        int pictured_width, pictured_height;
    } shapes[] = {
        {2592, 1944, 2560, 1920}, {1600, 1200, 1600, 1184}, {1920, 1080, 1920, 1056}, {640, 480, 640, 480}};
    for (const auto& shape : shapes)
        for (const bool h264 : {false, true})
            for (const bool half : {false, true}) {
                SCOPED_TRACE(std::to_string(shape.width) + (h264 ? " H.264" : " JPEG") +
                             (half ? " half" : ""));
                Config config = sensor(shape.width, shape.height);
                config.model = h264 ? 105 : 100;
                connect(config);
                device->m_Input.m_bHalf = half;
                device->m_Input.m_nQuality = half ? 20 : 2;  // both ends, each with tables of its own
                // Where that is cheap, on until frame numbers and picture order counts wrap.
                const std::size_t count = !h264 ? 2 : shape.width < 1000 ? 45 : 6;
                ASSERT_TRUE(frames(count / 2));
                device->m_Input.m_dwKeyFrameTime = 0;  // asks for a key frame
                ASSERT_TRUE(frames(count));
                fleet->stop();
                auto originals = fleet->originals(0);
                const auto seen = delivered();
                originals.resize(seen.size());  // one more may be on its way
                const char* codec = h264 ? "h264" : "mjpeg";
                const auto decoded = decode(codec, seen);
                ASSERT_EQ(decoded.size(), seen.size());
                EXPECT_EQ(decoded[0].width, shape.pictured_width / (half ? 2 : 1));
                EXPECT_EQ(decoded[0].height, shape.pictured_height / (half ? 2 : 1));
                EXPECT_TRUE(decoded == decode(codec, originals));
                EXPECT_FALSE(decoded.front() == decoded.back()) << "nothing moves";
                const auto sent = host.frames();
                const auto key = [](const RecordedEvent& frame) { return frame.record.FrameType == 1; };
                EXPECT_EQ(std::count_if(sent.begin(), sent.end(), key), 2);
            }
}

/// The file that curl or atftp makes of a transfer.
Bytes fetch_with(const std::string& program, std::string name, std::optional<int> size) {
    const std::string number = std::to_string(size.value_or(0));
    std::string command;
    if (program == "curl") {
        name.replace(name.find('?'), 1, "%3F");  // of a URL, where '?' begins a query
        command = "curl -s -o fetched " + (size ? "--tftp-blksize " + number : "--tftp-no-options") +
                  " 'tftp://" + own_address(1) + "/" + name + "'";
    } else {
        command = "atftp " + (size ? "--option 'blksize " + number + "' " : "") + "--get -l fetched -r '" +
                  name + "' " + own_address(1) + " 69";
    }
    std::remove("fetched");
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream file("fetched", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(Driver, GetsWhatForeignClientsGet) {
    if (std::system("command -v curl && command -v atftp") != 0)
        GTEST_SKIP() << "curl or atftp is not installed: scripts/install-packages test";
    const TemporaryFolder folder;
    connect(sensor(640, 480), most_live_cameras + 1);  // enough to share pictures: no clock in those
    ASSERT_TRUE(frames(1));
    const Bytes frame = delivered().front();
    const std::string picture = "h264?res=full;x0=0;y0=0;x1=640;y1=480;qp=29;iframe=1;ssn=1;";
    for (const auto size :
         {std::optional(1450), std::optional(1024), std::optional(512), std::optional<int>()}) {
        const Reply reply = TftpClient(own_address(1)).fetch(picture, size);
        ASSERT_TRUE(reply.complete);
        Bytes whole;
        for (const Bytes& block : reply.blocks)
            whole.insert(whole.end(), block.begin(), block.end());
        const Bytes& payload = reply.payload;
        ASSERT_GT(payload.size(), 2000U);
        EXPECT_NE(std::search(frame.begin(), frame.end(), payload.begin(), payload.end()), frame.end());
        for (const char* program : {"curl", "atftp"}) {
            SCOPED_TRACE(std::string(program) + " " + std::to_string(size.value_or(0)));
            EXPECT_TRUE(fetch_with(program, picture, size) == whole);
            EXPECT_EQ(fetch_with(program, "getreg?page=3;reg=122;", size), (Bytes{0, 105}));
        }
    }
}

}  // namespace
}  // namespace plendix::camera::test
