// Pictures that went through the driver decode to the same samples as the encoder's own stream.
#include "decoder.h"
#include "driver_bench.h"

namespace plendix::camera::test {
namespace {

struct Shape {
    const char* name;
    unsigned width, height;  // of the sensor
    int pictured_width, pictured_height;
};
void PrintTo(const Shape& shape, std::ostream* out) {
    *out << shape.name;
}

class Decoding : public DriverBench, public testing::WithParamInterface<Shape> {};

TEST_P(Decoding, GivesWhatTheEncoderWrote) {
    const Shape& shape = GetParam();
    for (const bool h264 : {false, true})
        for (const bool half : {false, true}) {
            SCOPED_TRACE(std::string(h264 ? "H.264" : "JPEG") + (half ? " half" : " full"));
            Config config{own_address(1)};
            config.model = h264 ? 105 : 100;
            config.sensor_width = shape.width;
            config.sensor_height = shape.height;
            Fleet fleet({config});
            fleet.keep_originals(0);
            fleet.start();
            connect(config.address);
            device->m_Input.m_bHalf = half;
            device->m_Input.m_nQuality = half ? 20 : 2;  // both ends, each with tables of its own
            // Where that is cheap, on until frame numbers and picture order counts wrap.
            const std::size_t count = !h264 ? 2 : shape.width < 1000 ? 45 : 6;
            ASSERT_TRUE(frames(count / 2));
            device->m_Input.m_dwKeyFrameTime = 0;  // asks for a key frame
            ASSERT_TRUE(frames(count));
            fleet.stop();
            auto originals = fleet.originals(0);
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

INSTANTIATE_TEST_SUITE_P(Sensors, Decoding,
                         testing::Values(Shape{"5 megapixels", 2592, 1944, 2560, 1920},
                                         Shape{"2 megapixels", 1600, 1200, 1600, 1184},
                                         Shape{"HD", 1920, 1080, 1920, 1056},
                                         Shape{"VGA", 640, 480, 640, 480}),
                         [](const auto& row) { return "Width" + std::to_string(row.param.pictured_width); });

}  // namespace
}  // namespace plendix::camera::test
