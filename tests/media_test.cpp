#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <string>
#include <tuple>
#include <vector>

#include "media/jpeg_header.h"
#include "media/parameter_sets.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr unsigned char Canary = 0xA5;

Bytes unhex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

// 1920 x 1080 at quality 19, where the quantiser tables (bytes 7 to 70 and 72 to 135) are the base tables;
// the Huffman tables are a stock encoder's.
const Bytes header19 = unhex(
    "FFD8FFDB00840008040606060408060606080808080C140C0C0A0A0C1810120E141C181E1E1C181C1A20242E2620222A221A1C28"
    "36282A2E303234321E26383C38323C2E323234010808080C0A0C160C0C1630201C20303030303030303030303030303030303030"
    "3030303030303030303030303030303030303030303030303030303030303034FFDD00040010FFC0001108043807800301210002"
    "1101031101FFC401A20000010501010101010100000000000000000102030405060708090A0B1000020103030204030505040400"
    "00017D01020300041105122131410613516107227114328191A1082342B1C11552D1F02433627282090A161718191A2526272829"
    "2A3435363738393A434445464748494A535455565758595A636465666768696A737475767778797A838485868788898A92939495"
    "969798999AA2A3A4A5A6A7A8A9AAB2B3B4B5B6B7B8B9BAC2C3C4C5C6C7C8C9CAD2D3D4D5D6D7D8D9DAE1E2E3E4E5E6E7E8E9EAF1"
    "F2F3F4F5F6F7F8F9FA0100030101010101010101010000000000000102030405060708090A0B1100020102040403040705040400"
    "010277000102031104052131061241510761711322328108144291A1B1C109233352F0156272D10A162434E125F11718191A2627"
    "28292A35363738393A434445464748494A535455565758595A636465666768696A737475767778797A82838485868788898A9293"
    "9495969798999AA2A3A4A5A6A7A8A9AAB2B3B4B5B6B7B8B9BAC2C3C4C5C6C7C8C9CAD2D3D4D5D6D7D8D9DAE2E3E4E5E6E7E8E9EA"
    "F2F3F4F5F6F7F8F9FAFFDA000C03010002110311003F00");

TEST(JpegHeader, IsAppendedWholeWhateverTheQuality) {
    for (int quality = 0; quality < 256; ++quality) {
        Bytes expected = header19;
        for (std::size_t i = 7; i < 136; ++i) {  // the scaling in whole numbers
            const int base = header19[i];
            const int scaled = quality == 20 ? (base * 33 + 20) / 40 : (base * (27 - quality) + 4) / 8;
            if (i != 71) expected[i] = static_cast<unsigned char>(quality < 27 ? scaled : 0);
        }
        expected.insert(expected.begin(), 3, Canary);
        Bytes header(3, Canary);
        CalculateHeader(header, 1920, 1080, static_cast<unsigned char>(quality));
        EXPECT_EQ(header, expected) << quality;
    }
}

TEST(ParameterSets, AreTheWorkedBytesAndStayInTheirBuffer) {
    const std::vector<std::tuple<int, int, int, const char*>> cases = {
        {1920, 1080, 0, "00000167420020E900F0043C8000000168CE3C80"},
        {1920, 1080, 1, "00000167420020E900F0043C8000000168CE3880"},
        {16, 31, 0, "00000167420020E93C8000000168CE3C80"},
        {65535, 65520, 0, "00000167420020E90007FF800FFFC800000168CE3C80"}};
    for (const auto& [width, height, deblocking_off, text] : cases) {
        Bytes expected = unhex(text);
        const int length = static_cast<int>(expected.size());
        expected.resize(64, Canary);
        for (int size = 0; size < 40; ++size) {  // the room, which is never left
            Bytes buffer(64, Canary);
            const int written = create_sps_pps(width, height, deblocking_off, buffer.data(), size);
            EXPECT_LE(written, size);
            EXPECT_EQ(std::count(buffer.begin() + size, buffer.end(), Canary), 64 - size) << size;
            if (size < length + 4) continue;
            EXPECT_EQ(written, length);
            EXPECT_EQ(buffer, expected);
        }
    }
}

TEST(ParameterSets, TellEveryNumberOfMacroblocksAndHaveADelimiter) {
    for (int count = 1; count < 4096; ++count) {
        unsigned char sets[32];
        create_sps_pps(16 * count + 15, 16 * (4096 - count), 0, sets, sizeof(sets));
        std::string bits;
        for (const unsigned char byte : sets)
            bits += std::bitset<8>(byte).to_string();
        bits.erase(0, 66);  // up to num_ref_frames and a flag
        const auto ue = [&] {
            const std::size_t zeros = bits.find('1');
            const int value = std::stoi(bits.substr(zeros, zeros + 1), nullptr, 2);
            bits.erase(0, 2 * zeros + 1);
            return value - 1;
        };
        EXPECT_EQ(ue(), count - 1);
        EXPECT_EQ(ue(), 4095 - count);
    }
    Bytes unit(9, Canary);
    EXPECT_EQ(create_unit_delimiter(0, unit.data(), 4), 0);
    EXPECT_EQ(create_unit_delimiter(-6, unit.data(), 9), 5);
    EXPECT_EQ(unit, (Bytes{0, 0, 1, 9, 2 * 32 + 16, Canary, Canary, Canary, Canary}));
}

}  // namespace
