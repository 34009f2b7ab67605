// Raw transfers made pictures, and what is said of files that are none.
#include "decode/decode.h"

#include <fstream>

#include "decode/picture_group.h"
#include "support/camera_bench.h"
#include "support/decoder.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

void save(const std::string& name, const Bytes& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes load(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class DecodeTest : public CameraBench {
protected:
    DecodeTest() { start(sensor(320, 240), most_live_cameras + 1); }  // always the same pictures
    Bytes fetch(const std::string& name, int block_size = 1450) {
        return client.fetch(name, block_size).whole;
    }
    static DecodePlan plan(std::vector<std::filesystem::path> files) {
        DecodePlan plan;
        plan.files = std::move(files);
        return plan;
    }

    const TemporaryFolder folder;
};

TEST_F(DecodeTest, MakesTheCamerasPicturesOfWhatClientsFetch) {
    const std::pair<const char*, int> jpegs[] = {
        {"a", 1450}, {"b", 512}, {"c", 1024}, {"image%3Fres=full;quality=8;", 3000}};
    for (const auto& [name, block_size] : jpegs) {
        save(name, fetch("image?res=full;quality=8;", block_size));
        ASSERT_EQ(decode_files(plan({name})), exit_done) << name;
        const auto pictures = decode("mjpeg", {load(std::string(name) + ".jpg"), fleet->originals(0).back()});
        EXPECT_TRUE(pictures.at(0) == pictures.at(1)) << name;
    }
    const char* const row[] = {"key", "p1", "p2"};
    for (const char* name : row)
        save(name, fetch(std::string("h264?qp=30;ssn=1;iframe=") + (name == row[0] ? "1;" : "0;")));
    ASSERT_EQ(decode_files(plan({"key", "p1", "p2"})), exit_done);
    const auto originals = fleet->originals(0);
    const auto group = decode("h264", {originals.end() - 3, originals.end()});
    DecodePlan stream = plan({"key", "p1", "p2"});
    stream.raw = true;
    stream.output = "g.h264";
    ASSERT_EQ(decode_files(stream), exit_done);
    stream.output.clear();
    ASSERT_EQ(decode_files(stream), exit_done);
    Bytes all;
    for (const char* name : row) {
        EXPECT_EQ(decode("png", {load(std::string(name) + ".png")}).at(0).width, 320) << name;
        const Bytes unit = load(std::string(name) + ".h264");
        all.insert(all.end(), unit.begin(), unit.end());
    }
    EXPECT_EQ(load("g.h264"), all);
    EXPECT_TRUE(decode("h264", {load("key.h264"), load("p1.h264"), load("p2.h264")}) == group);
    EXPECT_NE(load("key.png"), load("p2.png")) << "the ball in the picture moves";

    EXPECT_EQ(decode_files(plan({"p1", "key", "p2"})),
              exit_failed);  // the key frame is a picture all the same
    EXPECT_EQ(decode_files(plan({"key", "p1"})), exit_done);
    DecodePlan several = plan({"key", "p1"});
    several.output = "x.png";
    EXPECT_THROW(decode_files(several), UsageError);
    several = plan({"a", "b"});  // one would replace the other
    several.output = "x.jpg";
    several.raw = true;
    EXPECT_THROW(decode_files(several), UsageError);
    EXPECT_FALSE(std::filesystem::exists("x.jpg"));

    Bytes damaged = load("a");  // in the middle of its scan, where libjpeg complains and goes on
    damaged[500] = 0xFF;
    damaged[501] = 0xD3;
    save("damaged", damaged);
    EXPECT_EQ(decode_files(plan({"damaged"})), exit_failed);
    DecodePlan as_delivered = plan({"damaged"});
    as_delivered.raw = true;
    EXPECT_EQ(decode_files(as_delivered), exit_done);
}

TEST_F(DecodeTest, TellsWhatIsWrongWithFilesThatAreNone) {
    const Bytes jpeg = fetch("image?res=half;quality=8;"), key = fetch("h264?qp=30;ssn=1;iframe=1;");
    const Bytes p1 = fetch("h264?qp=30;ssn=1;"), p2 = fetch("h264?qp=30;ssn=1;"),
                p3 = fetch("h264?qp=30;ssn=1;");
    const auto changed = [&](std::size_t from_end, std::uint8_t value) {
        Bytes bytes = jpeg;
        bytes[bytes.size() - from_end] = value;
        return bytes;
    };
    const std::pair<Bytes, const char*> cases[] = {
        {{}, "it is empty"},
        {{0, 105}, "the answer of a register, 105"},
        {Bytes(90), "90 bytes are too few"},
        {{0xFF, 0xD8, 0xFF, 0xDB}, "a JPEG file already"},
        {{jpeg.begin(), jpeg.end() - 1}, "not 89 (blocks of 1450 bytes): it was cut short"},
        {{jpeg.begin(), jpeg.begin() + 2000}, "550 bytes, too many for a trailer"},
        {{jpeg.end() - 90, jpeg.end()}, "90 bytes are too few"},
        {changed(90 - 81, 27), "its trailer has a JPEG quality of 27"},
        {changed(90 - 89, 0), "its trailer has a size of"},
        {changed(91, 1), "other bytes than zeros"}};
    for (const auto& [file, words] : cases)
        EXPECT_THAT(read_raw_transfer(file, {}).trouble, testing::HasSubstr(words)) << file.size();
    for (const Bytes& whole : {jpeg, key})
        for (std::size_t size = 0; size < whole.size(); ++size)
            ASSERT_NE(
                read_raw_transfer({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, {})
                    .trouble,
                "")
                << size << " of " << whole.size();

    std::size_t decoded = 0;
    PictureGroup group([&decoded](const auto& one) { decoded += one.trouble.empty() ? 1 : 0; });
    const auto add = [&group](const Bytes& file) { return group.add(read_raw_transfer(file, {})); };
    EXPECT_THAT(add(p1), testing::HasSubstr("picture 1 of its group, which begins with a key frame"));
    EXPECT_EQ(add(key), "");
    EXPECT_THAT(add(p2), testing::HasSubstr("picture 1 is missing"));
    EXPECT_THAT(add(p3), testing::HasSubstr("pictures 1 to 2 are missing"));
    EXPECT_EQ(add(p1), "");
    group.end();
    EXPECT_EQ(decoded, 2U);
}

}  // namespace
}  // namespace plendix::camera::test
