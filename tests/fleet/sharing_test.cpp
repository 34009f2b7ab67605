// Scenes from files, and pictures that are coded once for many cameras.
extern "C" {
#include <libavutil/log.h>
}

#include <fstream>

#include "camera/gallery.h"
#include "decoder.h"
#include "driver_bench.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using testing::HasSubstr;

constexpr int width = 320, height = 240;

/// White on the left, black on the right.
void write_still(const std::string& file) {
    std::ofstream stream(file, std::ios::binary);
    stream << "P6 " << width << ' ' << height << " 255\n";
    for (int i = 0; i < width * height; ++i)
        stream << std::string(3, i % width < width / 2 ? '\xFF' : '\0');
}

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

class Scenes : public testing::Test {
protected:
    Scenes() { av_log_set_level(AV_LOG_QUIET); }  // of files that are no pictures
    void start(const std::string& scene, std::size_t cameras = 1) {
        std::vector<Config> configs;
        for (std::size_t i = 1; i <= cameras; ++i) {
            configs.push_back({own_address(i)});
            configs.back().sensor_width = 640;
            configs.back().sensor_height = 480;
        }
        Behaviour behaviour;
        behaviour.scene = scene;
        fleet.reset();  // its addresses are wanted again
        fleet = std::make_unique<Fleet>(configs, behaviour);
        fleet->keep_originals(0);
        fleet->start();
    }
    /// The last picture of camera 1.
    Decoded seen(const char* codec) const { return decode(codec, {fleet->originals(0).back()}).front(); }

    TemporaryFolder folder;
    std::unique_ptr<Fleet> fleet;
};

TEST_F(Scenes, AreScaledCroppedAndOfTheLevelsOfTheCodec) {
    write_still("still.ppm");
    start("still.ppm");
    TftpClient client(own_address(1));
    struct Case {
        std::string name;
        const char* codec;
        int width, white, black;
    };
    for (const Case& c : {Case{"image?res=full;quality=20;", "mjpeg", 640, 255, 0},
                          Case{"image?res=half;quality=20;", "mjpeg", 320, 255, 0},
                          Case{"image?res=full;x0=256;x1=385;quality=20;", "mjpeg", 129, 255, 0},
                          Case{"h264?res=full;qp=20;", "h264", 640, 235, 16},
                          Case{"h264?res=half;x0=192;x1=448;qp=20;", "h264", 128, 235, 16}}) {
        ASSERT_TRUE(client.fetch(c.name).complete) << c.name;
        const Decoded picture = seen(c.codec);
        ASSERT_EQ(picture.width, c.width) << c.name;
        EXPECT_NEAR(picture.samples[10], c.white, 3) << c.name;
        EXPECT_NEAR(picture.samples[static_cast<std::size_t>(c.width) - 10], c.black, 3) << c.name;
    }
}

TEST_F(Scenes, DecideOnTheMotion) {
    struct Case {
        int pictures, detection, zones, threshold;
        bool motion;
    };
    for (const Case& c : {Case{1, 1, 3, 10, false}, Case{24, 1, 3, 10, true}, Case{24, 1, 3, 255, false},
                          Case{24, 0, 3, 10, false}, Case{24, 1, 0, 10, false}}) {
        write_video("scene.y4m", c.pictures);
        start("scene.y4m");
        TftpClient client(own_address(1));
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
    for (const char* file : {"missing.png", "text.png", "."})
        try {
            start(file);
            ADD_FAILURE() << file;
        } catch (const Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr("scene '" + std::string(file) + "'"));
            EXPECT_THAT(failure.what(), HasSubstr("expected a picture or video file"));
        }
}

TEST_F(Scenes, AreSharedPictureByPicture) {
    write_video("scene.y4m", 36);
    start("scene.y4m", 2);
    TftpClient one(own_address(1)), two(own_address(2));
    std::vector<Bytes> first, key_frames;
    for (int i = 0; i < 76; ++i) {  // groups of 32 and 4 pictures, round and round
        const Reply reply = one.fetch("h264?qp=29;ssn=1;");
        ASSERT_EQ(reply.trailer.size(), 93U);
        EXPECT_EQ(reply.trailer[92] != 0, i % 36 == 0 || i % 36 == 32) << i;
        first.push_back(reply.payload);
        EXPECT_TRUE(reply.payload == first[static_cast<std::size_t>(i % 36)]) << i;
    }
    EXPECT_EQ(decode("h264", fleet->originals(0)).size(), 76U);
    struct Case {
        const char* name;
        std::size_t picture;
    };
    for (const Case& c : {Case{"h264?qp=29;ssn=9;iframe=0;", 0}, Case{"h264?qp=29;ssn=9;iframe=0;", 1},
                          Case{"h264?qp=29;ssn=9;iframe=1;", 32}, Case{"h264?qp=29;ssn=9;iframe=1;", 0},
                          Case{"h264?qp=29;ssn=10;iframe=1;", 0}})
        EXPECT_TRUE(two.fetch(c.name).payload == first[c.picture]) << c.name << ' ' << c.picture;
}

TEST(Galleries, KeepToTheirMemory) {
    constexpr std::size_t limit = 2'000'000;
    const Area sensor{0, 0, 320, 240};
    Gallery gallery(generated_loop(), limit);
    PictureRequest request;
    request.area = sensor;
    for (const bool h264 : {true, false})
        for (request.h264 = h264, request.qp = 10; request.qp < 30; ++request.qp) {
            request.quality = request.qp - 10;
            for (std::size_t i = 0; i < Gallery::group; ++i)
                ASSERT_NE(gallery.picture(request, sensor, i), nullptr);
            EXPECT_LT(gallery.bytes(), 2 * limit);  // the group in use is never forgotten
        }
    request.h264 = true;
    request.qp = 10;
    EXPECT_EQ(gallery.picture(request, sensor, 5), nullptr) << "forgotten, so it begins with its key frame";
    EXPECT_TRUE(gallery.picture(request, sensor, 0)->key());
}

}  // namespace
}  // namespace plendix::camera::test
