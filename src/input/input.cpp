#include "input/input.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/xml.h"
#include "plugin/host_records.h"

namespace {

constexpr int MinWidth = 320;  // kept between the left edge and the sensor's right edge
constexpr int MinHeight = 240;

// The part of a sensor edge that a crop value stands for, in pixels.
int Scaled(int crop, int edge) {
    return std::clamp(crop, 0, CInput::CropScale) * edge / CInput::CropScale;
}

std::unique_ptr<TiXmlElement> DefaultSchedule() {
    auto schedule = std::make_unique<TiXmlElement>("Schedule");
    TiXmlElement& entry = AddElement(*schedule, "Entry");  // the whole week, hour by hour
    entry.SetAttribute("FirstHour", 0);
    entry.SetAttribute("LastHour", 167);
    entry.SetAttribute("Record", 1);
    return schedule;
}

std::unique_ptr<TiXmlElement> DefaultDigPTZ() {
    auto digPTZ = std::make_unique<TiXmlElement>("DigPTZ");
    AddElement(*digPTZ, "Presets").SetAttribute("MaxPresets", 16);
    return digPTZ;
}

}  // namespace

CInput::CInput(unsigned long device, unsigned long number)
    : m_nDevice(static_cast<std::uint32_t>(device)),
      m_nNumber(static_cast<std::uint32_t>(number)),
      m_pSchedule(DefaultSchedule()),
      m_pDigPTZ(DefaultDigPTZ()) {
    std::memset(m_Mask, 0xFF, sizeof(m_Mask));
}

CInput::~CInput() = default;

void CInput::Init(const CRectangle& sensor, int standard) {
    const int W = sensor.Width();
    const int H = sensor.Height();
    // The cameras want an even left edge, a top edge on 16 lines, and whole blocks of 64 x 32.
    const int x0 = std::min(Scaled(m_nCropLeft, W), std::max(W - MinWidth, 0)) & ~1;
    const int y0 = std::min(Scaled(m_nCropTop, H), std::max(H - MinHeight, 0)) & ~15;
    const int x1 = std::min(x0 + (Scaled(m_nCropWidth, W) & ~63), W);
    const int y1 = std::min(y0 + (Scaled(m_nCropHeight, H) & ~31), H);
    m_Active.x0 = static_cast<std::uint16_t>(x0);
    m_Active.y0 = static_cast<std::uint16_t>(y0);
    m_Active.x1 = static_cast<std::uint16_t>(x1);
    m_Active.y1 = static_cast<std::uint16_t>(y1);
    if (!m_Active.IsValid()) return;  // no picture to be had; what the host wants stays

    const int width = m_Active.Width();
    const int height = m_Active.Height();
    if (m_nWidth == 0 && m_nHeight == 0)
        m_nStandard = standard;
    else
        m_bHalf = m_nWidth < width || m_nHeight < height;
    m_nWidth = m_bHalf ? width / 2 : width;
    m_nHeight = m_bHalf ? height / 2 : height;
    if (m_nFramerate == 0) m_nFramerate = sensor.Maximum();
}

void CInput::Reset() {
    if (m_bConnected) {
        m_bConnected = false;
        FireConnected(static_cast<long>(pt::unixseconds(pt::now(true))));
    }
    m_dwKeyFrameTime = 0;
    m_dwRequestTime = 0;
    std::memset(m_MAC, 0, sizeof(m_MAC));
    m_nMotion = -1;
    m_Active = CRectangle();
    m_Refusals = Refusals();
    ++m_wSsn;
}

std::string CInput::MAC() const {
    char text[18];
    std::snprintf(text, sizeof(text), "%02X-%02X-%02X-%02X-%02X-%02X", m_MAC[0], m_MAC[1], m_MAC[2], m_MAC[3],
                  m_MAC[4], m_MAC[5]);
    return text;
}

std::uint32_t CInput::SourceId() const {
    return PluginId | ((m_nDevice * 256) & 0xFFFF) | (m_nNumber & 0xFF);
}
