// The picture that is asked for, and the frame that is made of the blocks of the answer.
#include "input/input.h"

#include <gmock/gmock.h>
#include <sys/mman.h>

#include <climits>

#include "media/jpeg_header.h"
#include "support/host.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(Rectangle, MaximumFollowsTheTable) {
    const std::uint16_t sizes[][3] = {
        // width, height, frames per second, on both sides of every edge
        {2592, 1, 9},  {1, 1944, 9},     {2591, 1943, 12}, {2560, 1, 12}, {1, 1600, 12},   {2559, 1599, 15},
        {2048, 1, 15}, {1, 1536, 15},    {2047, 1535, 20}, {1920, 1, 20}, {1, 1200, 20},   {1919, 1199, 24},
        {1600, 1, 24}, {1599, 1199, 30}, {1280, 1, 30},    {1, 1024, 30}, {1279, 1023, 45}};
    for (const auto& [width, height, rate] : sizes)
        EXPECT_EQ((CRectangle{0, 0, width, height}.Maximum()), rate) << width << "x" << height;
}

TEST(Input, InitTakesWhatTheSensorHas) {
    using Case = std::vector<int>;
    const std::tuple<CRectangle, Case, Case> cases[] = {
        // sensor; wanted size, crop left, top, width, height; active, delivered size, half
        {{7, 9, 2599, 1953}, {2560, 1920, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 2560, 1920, 0}},
        {{0, 0, 2592, 1944}, {9999, 1919, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 1280, 960, 1}},
        {{0, 0, 2592, 1944}, {9999, 0, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 1280, 960, 1}},
        {{0, 0, 2592, 1944}, {0, 9999, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 1280, 960, 1}},
        {{0, 0, 2592, 1944}, {0, 0, 2500, 2500, 5000, 5000}, {648, 480, 1928, 1440, 1280, 960, 0}},
        {{0, 0, 2593, 1944}, {0, 0, 9000, 9000, 10000, 10000}, {2272, 1696, 2593, 1944, 321, 248, 0}},
        {{0, 0, 300, 200}, {0, 0, 9000, 9000, 10000, 10000}, {0, 0, 256, 192, 256, 192, 0}},
        {{0, 0, 65535, 65535}, {0, 0, 10000, 10000, 10000, 10000}, {65214, 65280, 65535, 65535, 321, 255, 0}},
        {{0, 0, 2592, 1944}, {0, 0, INT_MIN, INT_MIN, INT_MAX, INT_MAX}, {0, 0, 2560, 1920, 2560, 1920, 0}},
        {{0, 0, 2592, 1944}, {0, 0, 0, 0, INT_MIN, INT_MIN}, {0, 0, 0, 0, 0, 0, 0}},
        {{0, 0, 63, 31}, {0, 0, 0, 0, 10000, 10000}, {0, 0, 0, 0, 0, 0, 0}}};
    for (const auto& [sensor, wanted, expected] : cases) {
        CInput input(1, 0);
        std::tie(input.m_nWidth, input.m_nHeight) = std::tie(wanted[0], wanted[1]);
        auto crop = std::tie(input.m_nCropLeft, input.m_nCropTop, input.m_nCropWidth, input.m_nCropHeight);
        crop = std::tie(wanted[2], wanted[3], wanted[4], wanted[5]);
        for (int repetition = 0; repetition < 2; ++repetition) {  // the delivered size is stable
            input.Init(sensor, 5);
            EXPECT_EQ((Case{input.m_Active.x0, input.m_Active.y0, input.m_Active.x1, input.m_Active.y1,
                            input.m_nWidth, input.m_nHeight, input.m_bHalf}),
                      expected);
        }
        EXPECT_EQ(crop, std::tie(wanted[2], wanted[3], wanted[4], wanted[5]));
    }
}

TEST(Input, RequestNamesThePicture) {
    CInput input(1, 0);
    input.Init({8, 8, 2600, 1952}, 0);
    EXPECT_EQ(input.m_nFramerate, 9);
    EXPECT_EQ(input.Request(5), "image?res=full;x0=0;y0=0;x1=2560;y1=1920;quality=8;doublescan=0;");
    input.Init({0, 0, 640, 480}, 5);  // standard and rate are known by now
    EXPECT_TRUE(input.m_nStandard == 0 && input.m_nFramerate == 9 && input.m_dwRequestTime == 5);
    input.Reset();
    EXPECT_TRUE(!input.m_Active.IsValid() && input.m_dwRequestTime == 0 && input.m_wSsn == 2);
    input.m_Active = {2, 16, 65535, 65534};
    std::tie(input.m_bHalf, input.m_nStandard, input.m_wSsn) = std::make_tuple(true, 5, std::uint16_t{65535});
    const std::tuple<unsigned long, std::uint32_t, int, std::string> cases[] = {
        // now, time of the last key frame, quality; the end of the name
        {5000, 0, 20, "qp=17;iframe=1;ssn=65535;"},
        {5000, 3001, 2, "qp=35;iframe=0;ssn=65535;"},
        {5000, 3000, 8, "qp=29;iframe=1;ssn=65535;"},
        {4294967295, 4294966296, 8, "qp=29;iframe=0;ssn=65535;"},
        {1000, 4294966297, 8, "qp=29;iframe=0;ssn=65535;"},  // 1999 and 2000 ms across the wrap
        {1000, 4294966296, 8, "qp=29;iframe=1;ssn=65535;"}};
    for (const auto& [now, key_frame, quality, end] : cases) {
        std::tie(input.m_dwKeyFrameTime, input.m_nQuality) = std::tie(key_frame, quality);
        EXPECT_EQ(input.Request(now), "h264?res=half;x0=2;y0=16;x1=65535;y1=65534;" + end);
    }
    input.Reset();
    EXPECT_EQ(input.m_wSsn + input.m_dwKeyFrameTime, 0U);
}

const std::string delimiter = "\0\0\1\x09\x10"s;
const std::string sets = "\0\0\1\x67\x42\0\x20\xE9\0\xA0\x04\x0C\x80\0\0\1\x68\xCE\x3C\x80"s;  // 1280x1024

struct Trailer {
    int length = 90, x0 = 0, y0 = 0, x1 = 1280, y1 = 1024, quality = 8, flags = 4, key = 1, zone = -1;

    std::string bytes() const {
        std::string text = "xxxxxx\x01\x23\x45\x67\x89\xABxxxx" + std::string(64, '\0');
        if (zone >= 0) text[static_cast<std::size_t>(16 + zone)] = '\x80';
        text += {static_cast<char>(flags), static_cast<char>(quality)};
        for (const int edge : {x0, y0, x1, y1})
            text += {static_cast<char>(edge >> 8), static_cast<char>(edge & 255)};
        text += {'x', 'x', static_cast<char>(key)};
        text.resize(static_cast<std::size_t>(length), 'x');
        return text;
    }
};

std::string jpeg(int width, int height, const std::string& payload) {
    std::vector<unsigned char> header;
    CalculateHeader(header, width, height, 8);
    return std::string(header.begin(), header.end()) + payload.substr(2);
}

struct Response : testing::Test {
    int block(unsigned number, const std::string& data, unsigned size) {
        return input.Response(data.data(), static_cast<int>(data.size()), static_cast<unsigned short>(size),
                              static_cast<unsigned short>(number));
    }
    /// Answers a request with blocks in the given order, by default each once, and the trailer.
    int answer(std::string payload, const Trailer& trailer = {}, unsigned size = 1450,
               std::vector<unsigned> order = {}) {
        input.Request(1000);
        const auto count = static_cast<unsigned>((payload.size() + size - 1) / size);
        payload.resize(std::size_t{count} * size);
        for (unsigned number = 1; order.size() < count; ++number)
            order.push_back(number);
        for (const unsigned number : order)
            EXPECT_EQ(block(number, payload.substr(number * size - size, size), size), 0);
        return block(count + 1, trailer.bytes(), size);
    }
    /// The one frame since the last call.
    std::string frame() {
        const auto frames = host.frames();
        host.clear();
        return frames.size() == 1 ? frames[0].data : std::to_string(frames.size()) + " frames";
    }
    plendix::RecordingHost host;
    CInput input{1, 0};
};

TEST_F(Response, JpegWhateverTheBlockSizeAndOrder) {
    std::string payload(5900, 'p');
    payload[0] = payload[1] = payload[2500] = '\0';
    const std::pair<unsigned, std::vector<unsigned>> cases[] = {
        {200, {}},      {594, {}},     {600, {}},   {5899, {}},
        {5900, {}},     {65464, {}},   {65535, {}}, {1450, {3, 1, 5, 1, 2, 3, 4}},
        {91, {65, 64}}, {91, {65, 64}}};  // leaves nothing behind
    for (const auto& [size, order] : cases) {
        answer(payload + std::string(7, '\0'), {}, size, order);
        EXPECT_TRUE(frame() == jpeg(1280, 1024, payload)) << size;
    }
    input.Request(1000);
    for (const unsigned number : {1U, 2U, 9U})  // a stray one counts
        block(number, std::string(200, 'q'), 200);
    block(3, Trailer().bytes(), 200);
    EXPECT_TRUE(frame() == jpeg(1280, 1024, std::string(400, 'q') + std::string(200, 'p')));
}

TEST_F(Response, TrailerTellsCodecSizeAndPrefix) {
    const std::string key = "\0\0\0\1\x65"s;
    const std::string other = "\0\0\0\1\x41"s;
    const std::vector<std::tuple<Trailer, std::string, std::string>> cases = {
        {{89}, "data", "0 frames"},
        {{90}, "data", jpeg(1280, 1024, "data")},
        {{91, 25535, 1, 65535, 33001}, "data", jpeg(40000, 33000, "data")},
        {{92, 641, 481, 3200, 2402, 8, 0xFB}, "data", jpeg(1279, 960, "data")},
        {{91}, "", jpeg(1280, 1024, "pp").substr(0, 593)},
        {{91}, std::string(1451, '\0'), jpeg(1280, 1024, "pp").substr(0, 593)},
        {{93, 640, 480, 3201, 2529, 27, 0xFB}, "data", sets + key + "data" + delimiter},
        {{300}, "\1\0\2"s, sets + key + "\1\0\2"s + delimiter},
        {{93, 0, 0, 1280, 1024, 8, 4, 128}, "\0\1"s, sets + key + "\0\1"s + delimiter},
        {{93}, "\0\0\5"s, sets + "\0\0\5"s + delimiter},
        {{93, 0, 0, 1280, 1024, 8, 4, 0}, "\0\0\0\1\x41."s, "\0\0\0\1\x41."s + delimiter},
        {{93, 0, 0, 1280, 1024, 8, 4, 0}, "\x88"s, other + "\x88"s + delimiter}};
    for (const auto& [trailer, payload, expected] : cases) {
        input.m_dwKeyFrameTime = 0;
        EXPECT_EQ(answer(payload, trailer), trailer.length == 90);  // the address is new once
        EXPECT_EQ(input.m_dwKeyFrameTime, trailer.length < 90 || trailer.key == 0 ? 0U : 1000U);
        EXPECT_TRUE(frame() == expected) << trailer.length;
    }
}

TEST_F(Response, LostBlocksAreReportedAndAskForAKeyFrame) {
    const std::vector<std::tuple<std::vector<unsigned>, unsigned, unsigned>> cases = {
        {{1, 2, 4}, 5, 3}, {{2, 3}, 4, 1}, {{}, 2, 1}, {{1, 2}, 4, 3}, {{1, 2}, 2, 3}, {{0}, 0, 1}};
    input.m_nStandard = 5;
    for (const auto& [blocks, trailer, missing] : cases) {
        input.m_dwKeyFrameTime = 900;
        EXPECT_THAT(input.Request(1000), HasSubstr("iframe=0"));
        for (const unsigned number : blocks)
            block(number, std::string(1450, 'p'), 1450);
        EXPECT_EQ(block(trailer, Trailer().bytes(), 1450), 0);
        EXPECT_EQ(input.m_dwRequestTime, 0U);
        EXPECT_THAT(input.Request(1000), HasSubstr("iframe=1"));
        EXPECT_THAT(host.log_lines(),
                    ElementsAre("50 Camera - did not receive block " + std::to_string(missing) + " of " +
                                std::to_string(trailer)));
        EXPECT_EQ(frame(), "0 frames");
    }
}

TEST_F(Response, FillsTheBufferToItsLastUsableBlock) {
    answer(std::string(14500, 'p'));
    frame();
    unsigned char pages[513];  // of 4 KiB: memory follows the pictures
    const auto start = reinterpret_cast<std::uintptr_t>(input.m_Buffer.Data()) & ~std::uintptr_t{4095};
    EXPECT_EQ(mincore(reinterpret_cast<void*>(start), sizeof(pages) * 4096, pages), 0);
    EXPECT_LT(std::count_if(pages, std::end(pages), [](int page) { return page % 2 != 0; }), 8);
    EXPECT_LT(sizeof(CInput), 16384U);
    const unsigned cases[][2] = {{1450, 1445}, {32768, 62}, {1024, 2046}, {65535, 31}};
    for (const auto& [size, last] : cases) {
        const std::string payload(std::size_t{size} * last, 'p');
        answer(payload, {93}, size);
        EXPECT_TRUE(frame() == sets + "\0\0\0\1\x65"s + payload + delimiter) << size;
        answer(payload + "p", {93}, size);
        EXPECT_THAT(host.log_lines(), ElementsAre(HasSubstr("block " + std::to_string(last + 1) + " of ")));
    }
    block(0, std::string(65535, 'p'), 65535);  // a stray block 0 counts, but stays in the buffer
    block(32, Trailer{93}.bytes(), 65535);
    EXPECT_EQ(frame().substr(0, sets.size()), sets);
    for (const unsigned length : {2064383U, 2064384U}) {  // longer than a block, and longer than the buffer
        input.Request(1000);
        block(2, std::string(32768, 'q'), 32768);
        block(1, std::string(length, 'p'), 32768);
        block(3, Trailer().bytes(), 32768);
        EXPECT_EQ(frame() == jpeg(1280, 1024, std::string(65536, 'p')), length == 2064383U);
    }
}

TEST_F(Response, MotionMapMaskAndEvents) {
    // Zone, the mask's byte of its row, the map's byte, frame flags.
    const int cases[][4] = {{0, 0x7F, 0x80, 0}, {0, 0x80, 0x80, 0x80}, {63, 1, 1, 0x80}, {42, 0xDF, 0x20, 0}};
    host.answer(3, 7);  // a frame that is refused is not repeated
    testing::internal::CaptureStderr();
    for (const auto& [zone, mask, bits, flags] : cases) {
        const auto byte = static_cast<std::size_t>(3 * (zone / 8));
        std::fill_n(input.m_Mask, 24, static_cast<unsigned char>(0xFF));
        input.m_Mask[byte] = static_cast<unsigned char>(mask);
        answer("payload", {90, 0, 0, 1280, 1024, 8, 4, 0, zone});
        const _EventParmsIn record = host.frames().back().record;
        std::vector<int> map(128);
        map[byte] = bits;
        EXPECT_EQ(std::vector<int>(record.MotionMap, record.MotionMap + 128), map);
        EXPECT_TRUE(record.FrameFlags == flags && record.MotionLength == 24) << zone;
    }
    EXPECT_EQ(host.frames().size(), 4U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("\nPlendix: video event ret 3 error 7\n"));
    EXPECT_EQ(input.MAC(), "01-23-45-67-89-AB");
    input.Reset();
    input.Reset();
    EXPECT_EQ(input.MAC(), "00-00-00-00-00-00");
    answer("payload");  // connection and motion are told again
    std::string told;
    for (const std::string& text : host.documents(EventKindAlarm))
        told += std::regex_replace(text, std::regex("[^]* (Connected|Motion)=\"(.)[^]*"), "$1$2 ");
    EXPECT_EQ(told, "Connected1 Motion0 Motion1 Motion0 Connected0 Connected1 Motion0 ");
}

TEST_F(Response, UndecodableFramesAreRefusedAndLoggedOncePerRun) {
    const std::vector<std::tuple<Trailer, std::string>> cases = {
        {{90, 0, 0, 1280, 1024, 27}, "JPEG quality 27"}, {{92, 0, 0, 1280, 1024, 255}, "JPEG quality 255"},
        {{90, 0, 9, 1280, 1}, "picture size 1280x-8"},   {{90, 0, 0, 1, 1024, 8, 0}, "picture size 0x512"},
        {{93, 0, 0, 15, 1024}, "picture size 15x1024"},  {{93, 0, 0, 1280, 31, 8, 0}, "picture size 640x15"}};
    input.m_nStandard = 5;
    for (const auto& [trailer, reason] : cases) {
        answer("payload", {90, 0, 0, 1, 1, 26});  // the last that can be decoded
        answer("payload", {93, 0, 0, 16, 16});
        EXPECT_EQ(host.frames().size(), 2U);
        input.Reset();
        host.clear();
        for (int run = 0; run < 3; ++run) {
            EXPECT_EQ(answer("payload", trailer), run == 0);  // the address is new
            EXPECT_EQ(input.m_dwRequestTime, 1000U);
            EXPECT_THAT(input.Request(1001), HasSubstr("iframe=1"));
        }
        EXPECT_EQ(host.events().size(), 1U);  // no connection
        EXPECT_THAT(host.log_lines(), ElementsAre("50 Camera - invalid " + reason));
    }
    input.Reset();  // ends the run; after that only ten seconds of good frames do
    host.clear();
    const std::pair<unsigned, bool> frames[] = {{1000, false}, {2000, true},  {11999, true}, {12000, false},
                                                {13000, true}, {23000, true}, {23001, false}};
    for (const auto& [time, good] : frames) {
        input.Request(time);
        block(1, std::string(1450, 'p'), 1450);  // a frame that is no key frame needs no size
        block(2, (good ? Trailer{93, 9, 9, 1, 1, 99, 4, 0} : Trailer{90, 0, 0, 1, 1, 27}).bytes(), 1450);
    }
    EXPECT_EQ(host.frames().size(), 4U);
    const std::string warning = "50 Camera - invalid JPEG quality 27";
    EXPECT_THAT(host.log_lines(), ElementsAre(warning, "25 Camera receiving video", warning));
}

}  // namespace
