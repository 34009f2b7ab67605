// Pictures arrive with the samples that the encoder wrote, and stock TFTP clients get the same bytes.
// Scenes come from files, and pictures are coded once for many cameras.
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <numeric>

#include "camera/picture/gallery.h"
#include "driver_bench.h"
#include "support/decoder.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

TEST_F(DriverBench, DeliversWhatTheEncoderWrote) {
    const std::array<unsigned, 4> shapes[] = {
        {2592, 1944, 2560, 1920}, {1600, 1200, 1600, 1184}, {1920, 1080, 1920, 1056}, {640, 480, 640, 480}};
    for (const auto& [sensor_width, sensor_height, pictured_width, pictured_height] : shapes)
        for (const bool h264 : {false, true})
            for (const bool half : {false, true}) {
                SCOPED_TRACE(std::to_string(sensor_width) + (h264 ? " H.264" : " JPEG") +
                             (half ? " half" : ""));
                Config config = sensor(sensor_width, sensor_height);
                config.model = h264 ? 105 : 100;
                connect(config);
                device->m_Input.m_bHalf = half;
                device->m_Input.m_nQuality = half ? 20 : 2;  // both ends, each with tables of its own
                // Where that is cheap, on until frame numbers and picture order counts wrap.
                const std::size_t count = !h264 ? 2 : sensor_width < 1000 ? 45 : 6;
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
                EXPECT_EQ(static_cast<unsigned>(decoded[0].width), pictured_width / (half ? 2U : 1U));
                EXPECT_EQ(static_cast<unsigned>(decoded[0].height), pictured_height / (half ? 2U : 1U));
                EXPECT_TRUE(decoded == decode(codec, originals));
                EXPECT_FALSE(decoded.front() == decoded.back()) << "nothing moves";
                const auto restart = [](int a, int b) { return a == 0xFF && (b & 0xF8) == 0xD0 ? 1 : 0; };
                const int restarts = std::inner_product(seen[0].begin(), seen[0].end() - 1,
                                                        seen[0].begin() + 1, 0, std::plus<>(), restart);
                const int mcus = decoded[0].width / 16 * (decoded[0].height / 8);
                EXPECT_TRUE(h264 || restarts == (mcus - 1) / 16) << restarts;
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

TEST_F(DriverBench, GetsWhatForeignClientsGet) {
    if (std::system("command -v curl && command -v atftp") != 0)
        GTEST_SKIP() << "curl or atftp is not installed: scripts/install-packages test";
    const TemporaryFolder folder;
    connect(sensor(640, 480), most_live_cameras + 1);  // enough to share pictures: no clock in those
    ASSERT_TRUE(frames(1));
    const Bytes frame = delivered().front();
    const std::string picture = "h264?res=full;x0=0;y0=0;x1=640;y1=480;qp=29;iframe=1;ssn=1;";
    for (const auto size : {std::optional(1450), {1024}, {512}, {}}) {
        const Reply reply = TftpClient(own_address(1)).fetch(picture, size);
        ASSERT_TRUE(reply.complete);
        const Bytes& payload = reply.payload;
        ASSERT_GT(payload.size(), 2000U);
        EXPECT_NE(std::search(frame.begin(), frame.end(), payload.begin(), payload.end()), frame.end());
        for (const char* program : {"curl", "atftp"}) {
            EXPECT_TRUE(fetch_with(program, picture, size) == reply.whole) << program;
            EXPECT_EQ(fetch_with(program, "getreg?page=3;reg=122;", size), (Bytes{0, 105})) << program;
        }
    }
}

constexpr int width = 320, height = 240;

/// A white square of 32 pixels that goes right along the top, on black.
void write_video(const std::string& file, int pictures) {
    std::ofstream stream(file, std::ios::binary);
    stream << "YUV4MPEG2 W" << width << " H" << height << " F25:1 Ip A1:1 C420jpeg\n";
    for (int picture = 0; picture < pictures; ++picture) {
        std::string luma(width * height, '\x10');
        for (int y = 0; y < 32; ++y)
            luma.replace(static_cast<std::size_t>(y * width + picture * 8), 32, 32, '\xEB');
        stream << "FRAME\n" << luma << std::string(width * height / 2, '\x80');
    }
}

class Scenes : public CameraBench {
protected:
    Scenes() { av_log_set_level(AV_LOG_QUIET); }  // of files that are no pictures
    void show(const std::string& scene, std::size_t cameras = 1) {
        Behaviour behaviour;
        behaviour.scene = scene;
        start(sensor(640, 480), cameras, behaviour);
    }
    TemporaryFolder folder;
};

TEST_F(Scenes, AreScaledCroppedAndOfTheLevelsOfTheCodec) {
    std::ofstream still("still.ppm", std::ios::binary);  // white on the left, black on the right
    still << "P6 " << width << ' ' << height << " 255\n";
    for (int i = 0; i < width * height; ++i)
        still << std::string(3, i % width < width / 2 ? '\xFF' : '\0');
    still.close();
    show("still.ppm");
    for (const auto& [name, codec, wide, white, black] :
         {std::tuple("image?res=full;quality=20;", "mjpeg", 640, 255, 0),
          {"image?res=full;x0=256;x1=385;quality=20;", "mjpeg", 129, 255, 0},
          {"h264?res=full;qp=20;", "h264", 640, 235, 16},
          {"h264?res=half;x0=192;x1=448;qp=20;", "h264", 128, 235, 16}}) {
        ASSERT_TRUE(client.fetch(name).complete) << name;
        const Decoded picture = decode(codec, {fleet->originals(0).back()}).front();
        ASSERT_EQ(picture.width, wide) << name;
        EXPECT_NEAR(picture.samples[10], white, 3) << name;
        EXPECT_NEAR(picture.samples[static_cast<std::size_t>(wide) - 10], black, 3) << name;
    }
}

TEST_F(Scenes, DecideOnTheMotion) {
    const std::array<int, 5> cases[] = {
        {1, 1, 3, 10, 0}, {24, 1, 3, 10, 1}, {24, 1, 3, 255, 0}, {24, 0, 3, 10, 0}, {24, 1, 0, 10, 0}};
    for (const auto& [pictures, detection, zones, threshold, motion] : cases) {
        write_video("scene.y4m", pictures);
        show("scene.y4m");
        client.write(109, detection);
        client.write(110, zones << 8);
        client.write(111, threshold);
        std::array<int, 8> rows{};
        for (int i = 0; i < 20; ++i) {
            const Reply reply = client.fetch("image?res=half;quality=8;");
            ASSERT_TRUE(reply.complete);
            for (std::size_t zone = 0; zone < 64; ++zone)
                rows.at(zone / 8) += reply.trailer.at(16 + zone) != 0;
        }
        EXPECT_EQ(rows[0] > 0, motion == 1) << detection << ' ' << zones << ' ' << threshold;
        EXPECT_EQ(std::count(rows.begin() + 1, rows.end(), 0), 7) << "the square stays in the top row";
    }
}

TEST_F(Scenes, ThatCannotBeReadAreNamed) {
    std::ofstream("text.png") << "no picture";
    for (const std::string file : {"missing.png", "text.png", "."})
        EXPECT_THAT([&] { show(file); },
                    testing::ThrowsMessage<Failure>(testing::HasSubstr("scene '" + file + "'")));
}

TEST_F(Scenes, AreSharedPictureByPicture) {
    write_video("scene.y4m", 36);
    show("scene.y4m", 2);
    std::vector<Bytes> first;
    for (std::size_t i = 0; i < 76; ++i) {  // groups of 32 and 4 pictures, round and round
        const Reply reply = client.fetch("h264?qp=29;ssn=1;");
        ASSERT_EQ(reply.trailer.size(), 93U);
        EXPECT_EQ(reply.trailer[92] != 0, i % 36 == 0 || i % 36 == 32) << i;
        first.push_back(reply.payload);
        EXPECT_TRUE(reply.payload == first[i % 36]) << i;
    }
    EXPECT_EQ(decode("h264", fleet->originals(0)).size(), 76U);
    TftpClient other(own_address(2));
    const std::string name = "h264?qp=29;ssn=9;", key = name + "iframe=1;";
    const std::pair<std::string, std::size_t> cases[] = {
        {name, 0}, {name, 1}, {key, 32}, {key, 0}, {"h264?qp=29;ssn=10;iframe=1;", 0}};
    for (const auto& [asked, picture] : cases)
        EXPECT_TRUE(other.fetch(asked).payload == first[picture]) << asked << ' ' << picture;
}

TEST(Galleries, KeepToTheirMemory) {
    constexpr std::size_t limit = 8'000'000;
    const auto taken = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::size_t before = taken();
    Gallery gallery(generated_loop(), limit);
    PictureRequest request, favourite;
    request.area = favourite.area = {0, 0, 320, 240};
    const auto kept = gallery.picture(favourite, favourite.area, 0)->file();
    for (const auto& [h264, qp, pictures] :
         {std::tuple(true, 10, Gallery::group), {false, 10, Gallery::group}, {true, 30, 1}})
        for (request.h264 = h264, request.qp = qp; request.qp < qp + 20; ++request.qp) {
            request.quality = request.qp - qp;
            for (std::size_t i = 0; i < pictures; ++i)
                ASSERT_NE(gallery.picture(request, request.area, i), nullptr);
            EXPECT_LT(gallery.bytes(), 2 * limit);  // the group in use is never forgotten
            EXPECT_LT(taken() - before, gallery.bytes() * 5 / 4 + 500'000) << "more than it says";
            EXPECT_EQ(gallery.picture(favourite, favourite.area, 0)->file(), kept);
        }
    request.h264 = true;
    request.qp = 10;
    EXPECT_EQ(gallery.picture(request, request.area, 5), nullptr)
        << "forgotten, so it begins with its key frame";
    EXPECT_TRUE(gallery.picture(request, request.area, 0)->key());
}

}  // namespace
}  // namespace plendix::camera::test
