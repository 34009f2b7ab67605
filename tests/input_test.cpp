#include "input/input.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>
#include <vector>

namespace {

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
        {{0, 0, 2592, 1944}, {1280, 960, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 1280, 960, 1}},
        {{0, 0, 2592, 1944}, {9999, 1919, 0, 0, 10000, 10000}, {0, 0, 2560, 1920, 1280, 960, 1}},
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
    EXPECT_EQ(input.m_wSsn, 0);
}

}  // namespace
