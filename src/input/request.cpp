// The file name that asks a camera for its next picture.
#include <cstdio>

#include "input/input.h"

namespace {

constexpr std::uint32_t KeyFrameMilliseconds = 2000;  // longest distance of H.264 key frames
constexpr int QpBase = 37;                            // H.264 quantiser at quality 0

}  // namespace

const std::string& CInput::Request(unsigned long now) {
    const auto time = static_cast<std::uint32_t>(now);
    const char* const resolution = m_bHalf ? "half" : "full";
    char name[200];  // the longest has fewer than 110 characters
    if (m_nStandard != 0) {
        const bool key = m_dwKeyFrameTime == 0 || time - m_dwKeyFrameTime >= KeyFrameMilliseconds;
        std::snprintf(name, sizeof(name), "h264?res=%s;x0=%d;y0=%d;x1=%d;y1=%d;qp=%d;iframe=%d;ssn=%u;",
                      resolution, m_Active.x0, m_Active.y0, m_Active.x1, m_Active.y1, QpBase - m_nQuality,
                      key ? 1 : 0, m_wSsn);
    } else {
        std::snprintf(name, sizeof(name), "image?res=%s;x0=%d;y0=%d;x1=%d;y1=%d;quality=%d;doublescan=0;",
                      resolution, m_Active.x0, m_Active.y0, m_Active.x1, m_Active.y1, m_nQuality);
    }
    m_sRequest = name;
    m_dwRequestTime = time;
    m_Blocks.clear();
    m_wNextBlock = 1;
    return m_sRequest;
}
