// The pictures of the simulated camera, as a client that writes the missing headers sees them.
#include <array>

#include "camera/fleet.h"
#include "decoder.h"

namespace plendix::camera::test {
namespace {

// Quality 8, in zig-zag order; the second table repeats 114 up to its last entry.
constexpr std::uint8_t luminance_8[] = {
    19, 10,  14, 14,  14,  10,  19,  14,  14,  14, 19, 19,  19,  19,  29,  48,  29,  29,  24,  24, 29, 57,
    38, 43,  33, 48,  67,  57,  71,  71,  67,  57, 67, 62,  76,  86,  109, 90,  76,  81,  100, 81, 62, 67,
    95, 128, 95, 100, 109, 114, 119, 124, 119, 71, 90, 133, 143, 133, 119, 143, 109, 119, 119, 124};
constexpr std::uint8_t chrominance_8[] = {19, 19, 19, 29, 24, 29, 52, 29, 29, 52, 114, 76, 67, 76};

/// A header of the client's own, without Huffman tables: those of T.81 Annex K are the default.
Bytes jpeg_header(int width, int height) {
    Bytes header{0xFF, 0xD8, 0xFF, 0xDB, 0, 132, 0};
    header.insert(header.end(), std::begin(luminance_8), std::end(luminance_8));
    header.push_back(1);
    header.insert(header.end(), std::begin(chrominance_8), std::end(chrominance_8));
    header.insert(header.end(), 63 - std::size(chrominance_8), 114);
    header.push_back(124);
    const auto high = [](int value) { return static_cast<std::uint8_t>(value >> 8); };
    const auto low = [](int value) { return static_cast<std::uint8_t>(value); };
    const Bytes rest{
        0xFF,       0xDD, 0, 4,    0, 16,   0xFF, 0xC0, 0, 17,   8, high(height), low(height), high(width),
        low(width), 3,    1, 0x21, 0, 2,    0x11, 1,    3, 0x11, 1, 0xFF,         0xDA,        0,
        12,         3,    1, 0,    2, 0x11, 3,    0x11, 0, 63,   0};
    header.insert(header.end(), rest.begin(), rest.end());
    return header;
}

int word(const Bytes& trailer, std::size_t at) {
    return trailer.at(at) << 8 | trailer.at(at + 1);
}
std::array<int, 4> area(const Bytes& trailer) {
    return {word(trailer, 82), word(trailer, 84), word(trailer, 86), word(trailer, 88)};
}

TEST(JpegPictures, DecodeBehindTheClientsHeaderAsTheCodecsOwnFile) {
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
        Bytes file = jpeg_header(c.width, c.height);
        const Bytes payload = reply.payload;
        file.insert(file.end(), payload.begin() + 2, payload.end());
        const auto seen = decode("mjpeg", {file});
        ASSERT_EQ(seen.size(), 1U);
        EXPECT_EQ(seen[0].width, c.width);
        EXPECT_EQ(seen[0].height, c.height);
        EXPECT_TRUE(seen == decode("mjpeg", {fleet.originals(0).back()}));
        const Bytes& trailer = reply.trailer;
        ASSERT_EQ(trailer.size(), 90U);
        EXPECT_EQ(Bytes(trailer.begin() + 6, trailer.begin() + 12), (Bytes{2, 0, 0, 0, 0, 9}));
        EXPECT_EQ(trailer[80], c.flags);
        EXPECT_EQ(trailer[81], 8);
        EXPECT_EQ(area(trailer), c.area);
    }
}

TEST(JpegPictures, TakeTheirTablesFromTheQuality) {
    Fleet fleet({Config{"127.20.2.2"}});
    fleet.keep_originals(0);
    fleet.start();
    TftpClient client("127.20.2.2");
    const std::pair<int, Bytes> cases[] = {{2, {25, 13, 19, 19, 19, 13, 25}},
                                           {19, {8, 4, 6, 6, 6, 4, 8, 6}},
                                           {20, {7, 3, 5, 5, 5, 3, 7, 5, 5, 5, 7, 7}}};
    for (const auto& [quality, expected] : cases) {
        ASSERT_TRUE(client.fetch("image?x1=64;y1=64;quality=" + std::to_string(quality) + ";").complete);
        const Bytes file = fleet.originals(0).back();
        constexpr std::uint8_t table_0[] = {0xFF, 0xDB, 0, 67, 0};
        const auto found = std::search(file.begin(), file.end(), std::begin(table_0), std::end(table_0));
        ASSERT_GT(file.end() - found, 69);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), found + 5)) << quality;
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

TEST(MotionActivity, FollowsTheRegisters) {
    Fleet fleet({Config{"127.20.2.5"}});
    fleet.start();
    TftpClient client("127.20.2.5");
    struct Case {
        const char* what;
        int motion, zones, threshold;
        bool anywhere;
    };
    for (const Case& c : {Case{"detection off", 0, 7 << 8, 4, false},
                          {"everything", 1, 7 << 8, 4, true},
                          {"threshold out of reach", 1, 7 << 8, 255, false},
                          {"no zones", 1, 0, 4, false}}) {
        client.write(109, c.motion);
        client.write(110, c.zones);
        client.write(111, c.threshold);
        int ball = 0, beyond = 0;  // the ball moves in rows 3 and 4; the sensor ends in row 5
        for (int i = 0; i < 12; ++i) {
            const Reply reply = client.fetch("image?res=half;x1=1600;y1=1200;quality=8;");
            ASSERT_TRUE(reply.complete);
            for (std::size_t zone = 0; zone < 64; ++zone) {
                const bool active = reply.trailer.at(16 + zone) != 0;
                if (zone / 8 == 3 || zone / 8 == 4) ball += active;
                if (zone / 8 > 5) beyond += active;
            }
        }
        EXPECT_EQ(ball > 0, c.anywhere) << c.what;
        EXPECT_EQ(beyond, 0) << c.what;
    }
}

}  // namespace
}  // namespace plendix::camera::test
