// Scenes from files, and pictures that are coded once for many cameras.
extern "C" {
#include <libavutil/log.h>
}

#include <fstream>

#include "camera/camera_bench.h"
#include "camera/decoder.h"
#include "camera/gallery.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

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
    const struct {
        const char* name;
        const char* codec;
        int width, white, black;
    } cases[] = {{"image?res=full;quality=20;", "mjpeg", 640, 255, 0},
                 {"image?res=half;quality=20;", "mjpeg", 320, 255, 0},
                 {"image?res=full;x0=256;x1=385;quality=20;", "mjpeg", 129, 255, 0},
                 {"h264?res=full;qp=20;", "h264", 640, 235, 16},
                 {"h264?res=half;x0=192;x1=448;qp=20;", "h264", 128, 235, 16}};
    for (const auto& c : cases) {
        ASSERT_TRUE(client.fetch(c.name).complete) << c.name;
        const Decoded picture = decode(c.codec, {fleet->originals(0).back()}).front();
        ASSERT_EQ(picture.width, c.width) << c.name;
        EXPECT_NEAR(picture.samples[10], c.white, 3) << c.name;
        EXPECT_NEAR(picture.samples[static_cast<std::size_t>(c.width) - 10], c.black, 3) << c.name;
    }
}

TEST_F(Scenes, DecideOnTheMotion) {
    const struct {
        int pictures, detection, zones, threshold;
        bool motion;
    } cases[] = {{1, 1, 3, 10, false},
                 {24, 1, 3, 10, true},
                 {24, 1, 3, 255, false},
                 {24, 0, 3, 10, false},
                 {24, 1, 0, 10, false}};
    for (const auto& c : cases) {
        write_video("scene.y4m", c.pictures);
        show("scene.y4m");
        client.write(109, c.detection);
        client.write(110, c.zones << 8);
        client.write(111, c.threshold);
        std::array<int, 8> rows{};
        for (int i = 0; i < 20; ++i) {
            const Reply reply = client.fetch("image?res=half;quality=8;");
            ASSERT_TRUE(reply.complete);
            for (std::size_t zone = 0; zone < 64; ++zone)
                rows.at(zone / 8) += reply.trailer.at(16 + zone) != 0;
        }
        EXPECT_EQ(rows[0] > 0, c.motion)
            << c.pictures << ' ' << c.detection << ' ' << c.zones << ' ' << c.threshold;
        EXPECT_EQ(std::count(rows.begin() + 1, rows.end(), 0), 7) << "the square stays in the top row";
    }
}

TEST_F(Scenes, ThatCannotBeReadAreNamed) {
    std::ofstream("text.png") << "no picture";
    for (const std::string file : {"missing.png", "text.png", "."})
        EXPECT_THAT([&] { show(file); },
                    testing::ThrowsMessage<Failure>(AllOf(HasSubstr("scene '" + file + "'"),
                                                          HasSubstr("expected a picture or video file"))));
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
    constexpr std::size_t limit = 2'000'000;
    const Area whole{0, 0, 320, 240};
    Gallery gallery(generated_loop(), limit);
    PictureRequest request;
    request.area = whole;
    for (const bool h264 : {true, false})
        for (request.h264 = h264, request.qp = 10; request.qp < 30; ++request.qp) {
            request.quality = request.qp - 10;
            for (std::size_t i = 0; i < Gallery::group; ++i)
                ASSERT_NE(gallery.picture(request, whole, i), nullptr);
            EXPECT_LT(gallery.bytes(), 2 * limit);  // the group in use is never forgotten
        }
    request.h264 = true;
    request.qp = 10;
    EXPECT_EQ(gallery.picture(request, whole, 5), nullptr) << "forgotten, so it begins with its key frame";
    EXPECT_TRUE(gallery.picture(request, whole, 0)->key());
}

}  // namespace
}  // namespace plendix::camera::test
