// Live streams and snapshots: what other programs get of them, and when.
#include <fcntl.h>

#include <csignal>

#include "camera/picture/gallery.h"
#include "live/live_stream.h"
#include "live/mp4_fragments.h"
#include "record/decode_check.h"
#include "record/movie_file.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/decoder.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// Every frame decodes, in ascending order of time, and the first can be begun with.
void expect_film(const fs::path& file, std::uint64_t frames) {
    const DecodeResult result = check_file(file);
    EXPECT_TRUE(result.clean()) << file << ": " << result.first_fault;
    EXPECT_EQ(result.packets, frames) << file;
    MovieFile movie(file);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    std::int64_t last = -1;
    for (bool first = true; movie.read(*packet); first = false) {
        EXPECT_TRUE(!first || (packet->flags & AV_PKT_FLAG_KEY) != 0) << file;
        EXPECT_GT(packet->pts, last) << file;
        last = packet->pts;
    }
}

/// 64x32, grey, as the driver delivers it.
const Bytes small_key_frame{0, 0,    1,    0x67, 0x42, 0,    0x20, 0xE9, 8,    0xB2, 0,    0,
                            1, 0x68, 0xCE, 0x3C, 0x80, 0,    0,    0,    1,    0x65, 0x88, 0x84,
                            5, 0x13, 0x93, 0x93, 0x93, 0x93, 0x93, 0x93, 0x93, 0xC0};

Frame frame_of(const GalleryPicture& picture, FrameCodec codec, std::int64_t arrival_ms) {
    Frame frame;
    frame.camera = 1;
    frame.codec = codec;
    frame.key = picture.key();
    frame.arrival_ms = arrival_ms;
    frame.data = *picture.file();
    if (codec == FrameCodec::h264) frame.data.insert(frame.data.end(), {0, 0, 1, 9, 0x10});
    return frame;
}

TEST(LiveStream, BeginsWithAKeyFrameAndGoesOnOverChangesOfSize) {
    const TemporaryFolder folder;
    for (const auto& [name, format, codec] :
         {std::tuple{"jpeg.mkv", StreamFormat::matroska, FrameCodec::jpeg},
          {"h264.mkv", StreamFormat::matroska, FrameCodec::h264},
          {"h264.ts", StreamFormat::mpeg_ts, FrameCodec::h264},
          {"jpeg.mjpeg", StreamFormat::jpeg_parts, FrameCodec::jpeg}}) {
        LiveStream stream(format);
        std::ofstream file(name, std::ios::binary);
        const auto put = [&file](const Pieces& pieces) {
            for (const Piece& piece : pieces)
                file.write(reinterpret_cast<const char*>(piece.data),
                           static_cast<std::streamsize>(piece.size));
            return pieces.size();
        };
        std::uint64_t sent = 0;
        std::int64_t arrival = 1'000'000;
        for (const int width : {96, 128, 96}) {
            Gallery gallery(generated_loop(), 100'000'000);
            PictureRequest request;
            request.h264 = codec == FrameCodec::h264;
            request.area = {0, 0, width, 64};
            for (std::size_t i = 0; i < 40; ++i, arrival += i % 4 == 0 ? -40 : 40) {  // times go back, too
                const Frame frame = frame_of(*gallery.picture(request, request.area, i), codec, arrival);
                if (sent == 0 && codec == FrameCodec::h264 && i < 10 && frame.key) continue;
                const bool put_something = put(stream.take(frame)) > 0;
                EXPECT_TRUE(put_something || sent == 0);
                if (put_something) ++sent;
                EXPECT_EQ(stream.format().usable(), sent > 0);
            }
            EXPECT_EQ(stream.format().width, width);
        }
        file.close();
        EXPECT_EQ(sent, codec == FrameCodec::h264 ? 88U : 120U) << "without what comes before a key frame";
        expect_film(name, sent);
        Frame other;  // no stream changes its codec
        other.codec = codec == FrameCodec::h264 ? FrameCodec::jpeg : FrameCodec::h264;
        other.key = true;
        other.data = other.codec == FrameCodec::jpeg
                         ? Bytes{0xFF, 0xD8, 0xFF, 0xC0, 0, 17, 8, 0, 64, 0, 96, 3}
                         : small_key_frame;
        EXPECT_THROW(stream.take(other), Failure) << name;
    }
}

/// The 32 or 64 bits behind a box's name, its version and its flags.
std::int64_t value_of(const std::string& fragment, const char* box) {
    const std::size_t at = fragment.find(box) + 4;
    std::int64_t value = 0;
    for (std::size_t i = at + 4; i < at + (fragment.at(at) == 1 ? 12 : 8); ++i)
        value = value << 8 | static_cast<std::uint8_t>(fragment.at(i));
    return value;
}

TEST(Mp4Fragments, StandWhereTheyAreSaidToStandHoweverThePicturesCome) {
    Frame frame;
    frame.codec = FrameCodec::h264;
    frame.key = true;
    frame.data = small_key_frame;
    FrameParts parts;
    ASSERT_TRUE(parts.take(frame));
    Mp4Fragments fragments;
    fragments.begin(parts.format(), 0);
    const std::int64_t scale = 90;  // a millisecond of the stream
    for (const std::int64_t time_ms : {0, 19, 76, 80, 81, 400, 401, 450, 500, 1900, 1950, 2000, 2001, 2050}) {
        std::string bytes;
        for (const Piece& piece : fragments.write(parts.picture(), true, time_ms))
            bytes.append(reinterpret_cast<const char*>(piece.data), piece.size);
        EXPECT_EQ(value_of(bytes, "tfdt"), fragments.begin_ms() * scale) << time_ms;
        EXPECT_LE(fragments.begin_ms(), time_ms + 50) << "nothing adds up";
    }
}

class Live : public CameraBench {
protected:
    Live() {
        fs::create_directory("tmp");
        setenv("TMPDIR", fs::absolute("tmp").c_str(), 1);
        EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
    }
    ~Live() override {
        EXPECT_TRUE(fs::is_empty("tmp")) << "something of the driver stayed";
        unsetenv("TMPDIR");
        for (const int end : pipe_)
            close(end);
    }
    /// The child's words go to the file "said".
    pid_t run(std::vector<std::string> words, int output, const char* said = "said") {
        words.insert(words.begin(), "plendix");
        words.insert(words.end(), {"--plugin", PLENDIX_LIBRARY});
        const int error = open(said, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const pid_t child = start_command(words, output, error);
        close(error);
        return child;
    }
    int run_to_end(const std::vector<std::string>& words, const fs::path& output = "/dev/null") {
        const int file = open(output.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int code = exit_code(run(words, file));
        close(file);
        return code;
    }
    bool await(const std::function<bool()>& condition, std::chrono::seconds limit = 40s) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(5ms);
        return condition();
    }
    /// Reads from the pipe into the file, up to so many bytes more, or to the end.
    std::size_t read_on(std::ofstream& file, std::size_t most) {
        std::size_t sum = 0;
        std::vector<char> data(65536);
        while (sum < most) {
            const ssize_t size = read(pipe_[0], data.data(), std::min(data.size(), most - sum));
            if (size <= 0) break;
            file.write(data.data(), size);
            sum += static_cast<std::size_t>(size);
        }
        return sum;
    }

    TemporaryFolder folder_;
    int pipe_[2] = {-1, -1};
};

/// The number in front of the word, the last time it was said.
std::uint64_t told(const std::string& said, const std::string& word) {
    const std::size_t at = said.rfind(' ' + word);
    if (at == std::string::npos) return ~0ULL;
    const std::size_t number = said.find_last_not_of("0123456789", at - 1) + 1;
    return std::stoull(said.substr(number, at - number));
}

TEST_F(Live, EachPictureLeavesAtOnceAndAReaderThatGoesEndsItWell) {
    Behaviour slow;
    slow.max_fps = 2;
    start(sensor(320, 240), 4, slow);
    std::size_t camera = 0;
    for (const auto& [format, codec] :
         {std::pair{"mkv", "jpeg"}, {"mkv", "h264"}, {"ts", ""}, {"mjpeg", ""}}) {
        fleet->keep_originals(camera);
        std::vector<std::string> words{"stream", own_address(camera + 1), "--format", format};
        if (*codec != '\0') words.insert(words.end(), {"--codec", codec});
        const pid_t child = run(words, pipe_[1]);
        close(pipe_[1]);
        ASSERT_TRUE(await([&] { return !fleet->originals(camera).empty(); }));
        std::ofstream file("first", std::ios::binary);
        std::size_t bytes = fleet->originals(camera)[0].size();
        bytes -= std::min<std::size_t>(bytes / 2, 1000);  // what the encoder says of itself is not delivered
        EXPECT_EQ(read_on(file, bytes), bytes) << format;
        EXPECT_LE(fleet->counters(camera).frames, 2U) << format << ": it waited for the next pictures";
        ++camera;
        close(pipe_[0]);  // the camera's next picture is half a second away
        EXPECT_EQ(exit_code(child), 0) << format;
        EXPECT_THAT(text("said"), HasSubstr("; 0 lost")) << format;
        EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
    }
}

TEST_F(Live, SilenceAndASlowReaderCostPicturesAndNothingElse) {
    start(sensor(320, 240), 3);
    const int silent = open("silent.ts", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const pid_t patient = run({"stream", own_address(2), "--format", "ts"}, silent, "patient");
    EXPECT_TRUE(await([&] { return fleet->counters(1).frames > 30; }));
    fleet->inject(1, parse_fault("silent", "6s"));
    const std::uint64_t before = fleet->counters(1).frames;

    fcntl(pipe_[1], F_SETPIPE_SZ, 4096);
    const pid_t child = run({"stream", own_address(1), "--codec", "h264"}, pipe_[1]);
    close(std::exchange(pipe_[1], -1));
    int unread[2];
    ASSERT_EQ(pipe2(unread, O_CLOEXEC), 0);
    const pid_t stuck = run({"stream", own_address(3), "--codec", "jpeg"}, unread[1], "stuck");
    std::ofstream file("slow.mkv", std::ios::binary);
    read_on(file, 20'000);
    const std::uint64_t stalled = fleet->counters(0).frames;
    EXPECT_TRUE(await([&] { return fleet->counters(0).frames > stalled + 40; }));
    EXPECT_TRUE(await([&] { return fleet->counters(2).frames > 40; }));
    kill(stuck, SIGTERM);
    EXPECT_EQ(exit_code(stuck), 0) << "while it writes";
    const pid_t still = run({"snapshot", own_address(3), "--codec", "jpeg", "-o", "-"}, unread[1], "stuck");
    const std::uint64_t shown = fleet->counters(2).frames;
    EXPECT_TRUE(await([&] { return fleet->counters(2).frames > shown + 2; })) << "it writes to a full pipe";
    kill(still, SIGTERM);
    EXPECT_EQ(exit_code(still), 1);
    for (const int end : unread)
        close(end);
    read_on(file, 100'000);
    kill(child, SIGTERM);
    read_on(file, ~std::size_t{0});
    file.close();
    EXPECT_EQ(exit_code(child), 0);
    EXPECT_GT(told(text("said"), "lost"), 30U) << text("said");
    expect_film("slow.mkv", told(text("said"), "pictures,"));

    EXPECT_TRUE(await([&] { return fleet->counters(1).frames > before + 30; }));
    kill(patient, SIGINT);
    EXPECT_EQ(exit_code(patient), 0);
    EXPECT_THAT(text("patient"), testing::AllOf(HasSubstr(": silent since "), HasSubstr(": back after 1")));
    expect_film("silent.ts", told(text("patient"), "pictures,"));
    close(silent);
}

TEST_F(Live, SnapshotsDecodeAreWholeAndLeaveTheCameraAsItIs) {
    start(sensor(320, 240), 1);
    fs::create_directory("out");
    for (const auto& [codec, name] : {std::pair{"jpeg", "out/a.jpg"},
                                      {"h264", "out/b.JPEG"},
                                      {"h264", "out/c.png"},
                                      {"jpeg", "out/d.png"},
                                      {"h264", "-"}}) {
        EXPECT_EQ(run_to_end({"snapshot", own_address(1), "--codec", codec, "-o", name}, "out/-"), 0)
            << name << text("said");
        const fs::path file = fs::path("out") / fs::path(name).filename();
        const std::string content = text(file);
        const auto pictures =
            decode(file.extension() == ".png" ? "png" : "mjpeg", {{content.begin(), content.end()}});
        EXPECT_TRUE(pictures.size() == 1 && pictures[0].width == 320 && pictures[0].height == 224) << name;
    }
    EXPECT_EQ(run_to_end({"snapshot", own_address(1), "-o", "out/e.jpg", "--every", "1s", "--count", "2"}),
              0);
    EXPECT_EQ(fleet->relay(0), 1);
    EXPECT_EQ(run_to_end({"snapshot", own_address(1), "-o", "out/a.jpg", "--relay-normally-low"}), 0);
    EXPECT_EQ(fleet->relay(0), 0);
    const std::ptrdiff_t files = std::distance(fs::directory_iterator("out"), {});
    EXPECT_EQ(files, 5 + 2) << "and no half ones";
    for (const std::string& name : fleet->requested(0))
        for (const char* own : {"setreg?page=3;reg=2;", "setreg?page=3;reg=15;", "setreg?page=3;reg=16;"})
            EXPECT_THAT(name, testing::Not(testing::StartsWith(own)));

    const std::size_t asked = fleet->requested(0).size();
    const std::tuple<std::vector<std::string>, int, const char*> refused[] = {
        {{"snapshot", own_address(1), "-o", "nowhere/a.jpg"},
         1,
         "cannot write 'nowhere/a.jpg': No such file"},
        {{"snapshot", own_address(1), "-o", "out"}, 2, "neither a .jpg nor a .png"},
        {{"snapshot", own_address(9), "-o", "x.jpg", "--timeout", "1s"},
         1,
         "nothing listens on its UDP port 69"},
        {{"stream", own_address(9), "--timeout", "1s"}, 1, "no picture within 1 s"},
        {{"stream", own_address(1), "--format", "ts", "--codec", "jpeg"}, 2, "MPEG-TS has no JPEG pictures"}};
    for (const auto& [words, code, said] : refused) {
        EXPECT_EQ(run_to_end(words), code);
        EXPECT_THAT(text("said"), HasSubstr(said));
    }
    EXPECT_EQ(fleet->requested(0).size(), asked) << "a camera was asked before";
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(exit_code(run({"stream", own_address(1)}, screen)), 2);
    close(screen);
    close(terminal);
}

}  // namespace
}  // namespace plendix::camera::test
