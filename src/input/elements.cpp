// The Input, Channel and Resolution elements, and recording commands.
#include <tinyxml.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "input/input.h"
#include "input/mask.h"
#include "platform/xml.h"
#include "platform/xml_text.h"
#include "plugin/Plendix.h"

namespace {

constexpr int StandardH264 = 5;
constexpr std::size_t ElementDepth = 5;  // of what an Input holds: below Velm, Devices, Device, Video

void QueryPositive(const TiXmlElement& element, const char* name, std::int32_t& value) {
    int number = 0;
    if (QueryInt(element, name, number) && number > 0) value = number;
}

void EchoCopy(TiXmlElement& parent, const std::unique_ptr<TiXmlElement>& copy) {
    if (copy) parent.InsertEndChild(*copy);
}

}  // namespace

bool CInput::ParseInput(TiXmlElement* element) {
    QueryPositive(*element, "Brightness", m_nBrightness);
    QueryPositive(*element, "Saturation", m_nSaturation);
    QueryPositive(*element, "Sharpness", m_nSharpness);
    bool changed = false;
    const TiXmlElement* const motion = element->FirstChildElement("Motion");
    if (motion != nullptr) changed |= QueryInt(*motion, "PreMotion", m_nPreMotion);
    changed |= ReplaceCopy(*element, "OSD", m_pOSD);
    changed |= ReplaceCopy(*element, "Schedule", m_pSchedule);
    changed |= ReplaceCopy(*element, "DigPTZ", m_pDigPTZ);
    if (const char* name = element->Attribute("Name")) {
        m_sName = name;
        changed = true;
    }
    return changed;
}

// An element that the settings file could not give back would take all cameras with it.
bool CInput::ReplaceCopy(const TiXmlElement& parent, const char* name, std::unique_ptr<TiXmlElement>& copy) {
    const TiXmlElement* const child = parent.FirstChildElement(name);
    if (child == nullptr) return false;
    std::unique_ptr<TiXmlElement> durable = DurableCopy(*child, ElementDepth);
    if (!durable) {
        Trace(LogWarning, "%s - %s refused: it would not be read back as it is saved", m_sName.c_str(), name);
        return false;
    }
    copy = std::move(durable);
    return true;
}

bool CInput::ParseChannel(TiXmlElement* element) {
    bool changed = QueryFlag(*element, "Enabled", m_bEnabled);
    changed |= ParseStreamShape(*element);
    int level = 0;
    if (QueryInt(*element, "Quality", level)) {
        m_nQuality = std::clamp(level, 1, 10) * 2;
        changed = true;
    }
    if (QueryInt(*element, "Sensitivity", level)) m_nSensitivity = std::clamp(level, 1, 10);
    changed |= ParseMask(*element);
    ParseCrop(*element);
    return changed;
}

// Width, height and standard, each of which starts the stream afresh, and the frame rate.
bool CInput::ParseStreamShape(const TiXmlElement& element) {
    if (QueryInt(element, "Width", m_nWidth)) Reset();
    if (QueryInt(element, "Height", m_nHeight)) Reset();
    bool h264 = false;
    if (QueryFlag(element, "Standard", h264)) {
        m_nStandard = h264 ? StandardH264 : 0;
        Reset();
    }
    return QueryInt(element, "Framerate", m_nFramerate);
}

bool CInput::ParseMask(const TiXmlElement& element) {
    const char* const text = element.Attribute("Mask");
    if (text == nullptr) return false;
    const auto length = static_cast<unsigned int>(std::strlen(text));
    const unsigned int decoded = uu_decode(text, length, m_Mask, sizeof(m_Mask));
    if (decoded != sizeof(m_Mask)) Trace(LogWarning, "%s invalid mask length %u", m_sName.c_str(), decoded);
    return true;
}

void CInput::ParseCrop(const TiXmlElement& element) {
    const TiXmlElement* const crop = element.FirstChildElement("Crop");
    if (crop == nullptr) return;
    m_nCropLeft = 0;
    m_nCropTop = 0;
    m_nCropWidth = CropScale;
    m_nCropHeight = CropScale;
    QueryInt(*crop, "Left", m_nCropLeft);
    QueryInt(*crop, "Top", m_nCropTop);
    QueryInt(*crop, "Width", m_nCropWidth);
    QueryInt(*crop, "Height", m_nCropHeight);
    Reset();
}

void CInput::FillInput(TiXmlElement& element) {
    element.SetAttribute("Number", static_cast<int>(m_nNumber));
    element.SetAttribute("Name", m_sName);
    element.SetAttribute("Brightness", m_nBrightness);
    element.SetAttribute("Saturation", m_nSaturation);
    element.SetAttribute("Sharpness", m_nSharpness);
    AddElement(element, "Motion").SetAttribute("PreMotion", m_nPreMotion);
    EchoCopy(element, m_pOSD);
    EchoCopy(element, m_pSchedule);
    EchoCopy(element, m_pDigPTZ);
}

void CInput::FillChannel(TiXmlElement& element, unsigned short zone) {
    char mask[sizeof(m_Mask) / 3 * 4 + 1];
    mask[uu_encode(m_Mask, sizeof(m_Mask), mask, sizeof(mask) - 1)] = '\0';
    const int zonePixels = m_bHalf ? zone / 2 : zone;
    element.SetAttribute("Number", static_cast<int>(m_nNumber));
    element.SetAttribute("Enabled", m_bEnabled ? 1 : 0);
    element.SetAttribute("Width", m_nWidth);
    element.SetAttribute("Height", m_nHeight);
    element.SetAttribute("Standard", m_nStandard);
    element.SetAttribute("Framerate", m_nFramerate);
    element.SetAttribute("Quality", m_nQuality / 2);
    element.SetAttribute("Sensitivity", m_nSensitivity);
    element.SetAttribute("Mask", mask);
    element.SetAttribute("MaskWidth", zonePixels);
    element.SetAttribute("MaskHeight", zonePixels);
    element.SetAttribute("ID", static_cast<int>(SourceId()));
    TiXmlElement& crop = AddElement(element, "Crop");
    crop.SetAttribute("Left", m_nCropLeft);
    crop.SetAttribute("Top", m_nCropTop);
    crop.SetAttribute("Width", m_nCropWidth);
    crop.SetAttribute("Height", m_nCropHeight);
}

void CInput::AddResolutions(TiXmlElement& codec) {
    if (!m_Active.IsValid()) return;
    const std::uint16_t width = m_Active.Width();
    const std::uint16_t height = m_Active.Height();
    AddResolution(codec, width, height);
    AddResolution(codec, static_cast<unsigned short>(width / 2), static_cast<unsigned short>(height / 2));
}

void CInput::AddResolution(TiXmlElement& codec, unsigned short width, unsigned short height) {
    char name[16];
    std::snprintf(name, sizeof(name), "%ux%u", unsigned{width}, unsigned{height});
    TiXmlElement& resolution = AddElement(codec, "Resolution");
    resolution.SetAttribute("Width", width);
    resolution.SetAttribute("Height", height);
    resolution.SetAttribute("Name", name);
}

void CInput::WriteInput(TiXmlElement* element) {
    int context = 0;
    int seconds = 0;
    int milliseconds = 0;
    int action = 0;
    int record = 0;
    if (QueryInt(*element, "Context", context) && QueryInt(*element, "Time", seconds) &&
        QueryInt(*element, "Milliseconds", milliseconds) && QueryInt(*element, "Action", action) &&
        QueryInt(*element, "Record", record))
        SetAction(m_Actions, action, record, seconds, milliseconds);
}
