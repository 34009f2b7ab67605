// The pictures of the simulated camera and the trailers that describe them.
#include <array>

#include "camera/fleet.h"
#include "decoder.h"

namespace plendix::camera::test {
namespace {

int word(const Bytes& trailer, std::size_t at) {
    return trailer.at(at) << 8 | trailer.at(at + 1);
}
std::array<int, 4> area(const Bytes& trailer) {
    return {word(trailer, 82), word(trailer, 84), word(trailer, 86), word(trailer, 88)};
}

TEST(JpegPictures, ComeWithATrailerThatDescribesThem) {
    Config config{"127.20.2.1"};
    config.mac = {2, 0, 0, 0, 0, 9};
    Fleet fleet({config});
    fleet.keep_originals(0);
    fleet.start();
    TftpClient client("127.20.2.1");
    struct Case {
        std::string name;
        int width, height, flags;
        std::array<int, 4> area;
    };
    const Case cases[] = {
        {"image?res=full;x0=0;y0=0;x1=1600;y1=1184;quality=8;doublescan=0;",
         1600,
         1184,
         4,
         {0, 0, 1600, 1184}},
        {"image?res=half;x0=0;y0=0;x1=1600;y1=1184;quality=8;doublescan=0;", 800, 592, 0, {0, 0, 1600, 1184}},
        {"image?res=full;x0=320;y0=16;x1=9999;y1=9999;quality=8;", 1280, 1184, 4, {320, 16, 1600, 1200}},
        {"image?res=half;x0=1;y0=0;x1=100;y1=51;quality=8;", 49, 25, 0, {1, 0, 99, 50}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Reply reply = client.fetch(c.name);
        ASSERT_TRUE(reply.complete);
        const auto seen = decode("mjpeg", {fleet.originals(0).back()});
        EXPECT_EQ(seen.at(0).width, c.width);
        EXPECT_EQ(seen.at(0).height, c.height);
        const Bytes& trailer = reply.trailer;
        ASSERT_EQ(trailer.size(), 90U);
        EXPECT_EQ(Bytes(trailer.begin() + 6, trailer.begin() + 12), (Bytes{2, 0, 0, 0, 0, 9}));
        EXPECT_EQ(trailer[80], c.flags);
        EXPECT_EQ(trailer[81], 8);
        EXPECT_EQ(area(trailer), c.area);
    }
}

TEST(H264Pictures, BeginWithKeyFrameWheneverTheStreamIsAnother) {
    Fleet fleet({Config{"127.20.2.4"}});
    fleet.start();
    TftpClient one("127.20.2.4"), two("127.20.2.4");
    struct Case {
        TftpClient& client;
        const char* name;
        bool key;
    };
    const Case cases[] = {{one, "h264?qp=30;ssn=1;iframe=0;", true},
                          {one, "h264?qp=30;ssn=1;iframe=0;", false},
                          {one, "h264?qp=30;ssn=2;iframe=0;", true},
                          {one, "h264?qp=31;ssn=2;iframe=0;", true},
                          {one, "h264?qp=31;ssn=2;iframe=0;", false},
                          {one, "h264?qp=31;ssn=2;x1=640;", true},
                          {one, "h264?qp=31;ssn=2;x1=640;res=half;", true},
                          {two, "h264?qp=31;ssn=2;x1=640;res=half;", true},
                          {two, "h264?qp=31;ssn=2;x1=640;res=half;iframe=1;", true},
                          {two, "h264?qp=31;ssn=2;x1=640;res=half;iframe=0;", false}};
    for (const Case& c : cases) {
        const Reply reply = c.client.fetch(c.name);
        ASSERT_TRUE(reply.complete) << c.name;
        EXPECT_EQ(reply.trailer.at(92) != 0, c.key) << c.name;
    }
}

}  // namespace
}  // namespace plendix::camera::test
