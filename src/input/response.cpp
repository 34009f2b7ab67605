// From data blocks to a frame: filing, completeness, headers in front of the payload.
#include <algorithm>
#include <cstring>
#include <tuple>

#include "input/input.h"
#include "media/jpeg_header.h"
#include "media/parameter_sets.h"
#include "plugin/Plendix.h"

namespace {

// The frame trailer: the short block behind the picture. Numbers are big-endian.
constexpr int TrailerMAC = 6;
constexpr int TrailerActivity = 16;  // 8 rows of 8 zones, a byte each
constexpr int TrailerFlags = 80;
constexpr int TrailerQuality = 81;
constexpr int TrailerArea = 82;      // x0, y0, x1, y1
constexpr int TrailerSize = 90;      // shorter ones are not used
constexpr int TrailerKeyFrame = 92;  // H.264 only, and what tells H.264 from JPEG
constexpr unsigned char FlagFullResolution = 4;

constexpr std::uint32_t GoodMilliseconds = 10000;  // of good frames end a run of refused ones
constexpr int CodecJpeg = 8;
constexpr int CodecH264 = 64;

constexpr int SlicePrefixSize = 5;
constexpr int ParameterSetsSize = 32;  // what create_sps_pps is given; it writes at most 22

int Word(const unsigned char* bytes) {
    return bytes[0] << 8 | bytes[1];
}

bool EndsInZeroWord(const unsigned char* end) {
    std::uintptr_t word = 0;
    std::memcpy(&word, __builtin_assume_aligned(end - sizeof(word), sizeof(word)), sizeof(word));
    return word == 0;
}

// The length without the zeros at the end. A block may hold little else: by words, where they are
// aligned.
std::size_t WithoutZeros(const unsigned char* data, std::size_t length) {
    constexpr std::size_t WordSize = sizeof(std::uintptr_t);
    const unsigned char* end = data + length;
    while (end != data && end[-1] == 0 && reinterpret_cast<std::uintptr_t>(end) % WordSize != 0)
        --end;
    if (reinterpret_cast<std::uintptr_t>(end) % WordSize == 0) {
        while (end - data >= std::ptrdiff_t{WordSize} && EndsInZeroWord(end))
            end -= WordSize;
    }
    while (end != data && end[-1] == 0)
        --end;
    return static_cast<std::size_t>(end - data);
}

}  // namespace

struct CInput::Frame {
    unsigned char* payload;  // in the frame buffer
    int length;              // of the payload
    bool h264;
    bool key;
    unsigned char quality;
    int width;
    int height;
    bool motion;
    unsigned char map[MotionMapSize];
};

int CInput::Response(const char* data, int length, unsigned short blockSize, unsigned short block) {
    if (length >= blockSize) {
        StoreBlock(data, length, blockSize, block);
        return 0;
    }
    return CompleteFrame(reinterpret_cast<const unsigned char*>(data), length, blockSize, block);
}

char* CInput::NextPlace(unsigned short blockSize, std::size_t room) const {
    const std::size_t place = std::size_t{m_wNextBlock} * blockSize;
    if (place == 0 || place + blockSize > m_nUsed || place + room > CFrameBuffer::Size) return nullptr;
    return reinterpret_cast<char*>(m_Buffer.Data() + place);
}

void CInput::FileNext() {
    m_Blocks.insert(m_wNextBlock++);
}

void CInput::EndOrder() {
    if (m_wNextBlock != 1) m_wNextBlock = 0;
}

void CInput::StoreBlock(const char* data, int length, unsigned short blockSize, unsigned short block) {
    const std::size_t place = std::size_t{block} * blockSize;
    const auto size = static_cast<std::size_t>(length);
    if (place + size >= CFrameBuffer::Size) return;
    std::memcpy(m_Buffer.Data() + place, data, size);
    m_Blocks.insert(block);
    m_wNextBlock = block == m_wNextBlock && block != 0 ? static_cast<std::uint16_t>(block + 1) : 0;
}

int CInput::CompleteFrame(const unsigned char* trailer, int length, unsigned short blockSize,
                          unsigned short block) {
    const unsigned int missing = m_Blocks.FirstMissing();
    if (missing != block) {
        Trace(LogWarning, "%s - did not receive block %u of %u", m_sName.c_str(), missing, unsigned{block});
        m_dwKeyFrameTime = 0;
        m_dwRequestTime = 0;
        return 0;
    }
    m_nUsed = std::size_t{block} * blockSize;
    if (length < TrailerSize) return 0;
    const int changed = UpdateMAC(trailer + TrailerMAC) ? 1 : 0;

    Frame frame = {};
    frame.payload = m_Buffer.Data() + blockSize;
    frame.length = PayloadLength(blockSize);
    frame.h264 = length > TrailerKeyFrame;
    frame.key = !frame.h264 || trailer[TrailerKeyFrame] != 0;
    frame.quality = trailer[TrailerQuality];
    frame.motion = ReadMotion(trailer + TrailerActivity, frame.map);
    const int divisor = (trailer[TrailerFlags] & FlagFullResolution) != 0 ? 1 : 2;
    const unsigned char* const area = trailer + TrailerArea;
    frame.width = (Word(area + 4) - Word(area)) / divisor;
    frame.height = (Word(area + 6) - Word(area + 2)) / divisor;

    if (IsDecodable(frame)) {
        if (frame.h264)
            DeliverH264(frame);
        else
            DeliverJpeg(frame);
    }
    return changed;
}

// Without the zeros that fill the last block. A stray block 0 cannot push it past the buffer.
int CInput::PayloadLength(unsigned short blockSize) const {
    const std::size_t length = std::min(m_Blocks.size() * blockSize, CFrameBuffer::Size - blockSize);
    return static_cast<int>(WithoutZeros(m_Buffer.Data() + blockSize, length));
}

bool CInput::UpdateMAC(const unsigned char* mac) {
    if (std::memcmp(m_MAC, mac, sizeof(m_MAC)) == 0) return false;
    std::memcpy(m_MAC, mac, sizeof(m_MAC));
    return true;
}

// Fills the cleared map with the zones in motion; true when the mask enables one of them.
bool CInput::ReadMotion(const unsigned char* activity, unsigned char* map) const {
    bool motion = false;
    for (std::size_t row = 0; row < MotionZones; ++row) {
        unsigned char& zones = map[MotionRowBytes * row];
        for (std::size_t column = 0; column < MotionZones; ++column) {
            if (activity[MotionZones * row + column] != 0)
                zones = static_cast<unsigned char>(zones | 0x80 >> column);
        }
        motion = motion || (zones & m_Mask[MotionRowBytes * row]) != 0;
    }
    return motion;
}

// Refuses a frame that no decoder takes, and asks for a key frame then. The size matters only where
// it goes into a header: an H.264 frame that is no key frame has none.
bool CInput::IsDecodable(const Frame& frame) {
    const int minimum = frame.h264 ? MacroblockSize : 1;
    const bool size = !frame.key || (frame.width >= minimum && frame.height >= minimum);
    const bool quality = frame.h264 || frame.quality < JpegQualityLimit;
    if (size && quality) {
        CountGoodFrame();
        return true;
    }
    if (!m_Refusals.running && !size)
        Trace(LogWarning, "%s - invalid picture size %dx%d", m_sName.c_str(), frame.width, frame.height);
    else if (!m_Refusals.running)
        Trace(LogWarning, "%s - invalid JPEG quality %u", m_sName.c_str(), unsigned{frame.quality});
    m_Refusals.running = true;
    m_Refusals.good = false;
    m_dwKeyFrameTime = 0;
    return false;
}

void CInput::CountGoodFrame() {
    if (!m_Refusals.running) return;
    if (!m_Refusals.good) m_Refusals.since = m_dwRequestTime;
    m_Refusals.good = true;
    if (m_dwRequestTime - m_Refusals.since >= GoodMilliseconds) m_Refusals = Refusals();
}

void CInput::DeliverH264(Frame& frame) {
    std::memcpy(frame.payload + frame.length, UnitDelimiter, sizeof(UnitDelimiter));
    unsigned char prefix[ParameterSetsSize + SlicePrefixSize] = {};
    int prefixLength = 0;
    if (frame.key) prefixLength = create_sps_pps(frame.width, frame.height, 0, prefix, ParameterSetsSize);
    // A payload that does not begin with a start code begins behind the NAL header byte.
    if ((frame.length > 0 && frame.payload[0] != 0) || (frame.length > 1 && frame.payload[1] != 0)) {
        const auto header = static_cast<unsigned char>(frame.key ? 0x65 : 0x41);
        const unsigned char slice[SlicePrefixSize] = {0x00, 0x00, 0x00, 0x01, header};
        std::memcpy(prefix + prefixLength, slice, sizeof(slice));
        prefixLength += SlicePrefixSize;
    }
    unsigned char* const start = frame.payload - prefixLength;
    std::memcpy(start, prefix, static_cast<std::size_t>(prefixLength));
    if (frame.key) m_dwKeyFrameTime = m_dwRequestTime;
    const int length = prefixLength + frame.length + static_cast<int>(sizeof(UnitDelimiter));
    FireVideo(reinterpret_cast<char*>(start), length, CodecH264, frame.key ? FrameTypeKey : FrameTypeDelta,
              frame.motion, frame.map, MotionMapSize);
}

const std::vector<unsigned char>& CInput::Header(const Frame& frame) {
    auto& [width, height, quality, bytes] = m_Header;
    if (bytes.empty() || width != frame.width || height != frame.height || quality != frame.quality) {
        bytes.clear();
        CalculateHeader(bytes, frame.width, frame.height, frame.quality);
        std::tie(width, height, quality) = std::tuple(frame.width, frame.height, frame.quality);
    }
    return bytes;
}

void CInput::DeliverJpeg(Frame& frame) {
    const std::vector<unsigned char>& header = Header(frame);
    // The header's last two bytes take the place of two filler bytes in front of the picture.
    unsigned char* const start = frame.payload + 2 - header.size();
    std::memcpy(start, header.data(), header.size());
    m_dwKeyFrameTime = m_dwRequestTime;
    const int length = static_cast<int>(header.size()) + frame.length - 2;
    FireVideo(reinterpret_cast<char*>(start), length, CodecJpeg, FrameTypeKey, frame.motion, frame.map,
              MotionMapSize);
}
