// The Device element: the camera as the host configures and sees it.
#include <tinyxml.h>

#include "device/device.h"
#include "device/registers.h"
#include "platform/xml.h"

namespace {

constexpr int DefaultMaxFramerate = 30;  // until the sensor is known

// A terminal's name and polarity are taken together, or not at all.
void ParseTerminal(const TiXmlElement& terminal, const char* polarity, std::string& name, bool& inverted) {
    const char* const newName = terminal.Attribute("Name");
    if (HasInt(terminal, "Number", 0) && newName != nullptr && QueryFlag(terminal, polarity, inverted))
        name = newName;
}

}  // namespace

bool CDevice::ParseDevice(TiXmlElement* element) {
    bool changed = QueryFlag(*element, "Enabled", m_bEnabled);
    if (const char* address = element->Attribute("ipAddress")) {
        m_sAddress = address;  // used from the next Open on
        changed = true;
    }
    changed |= ParseVideo(*element);
    changed |= ParseCodec(*element);
    changed |= ParseTrigger(*element);
    if (!m_bEnabled) {
        DisableReset();
        return changed;
    }
    return InitInput() || changed;
}

bool CDevice::ParseVideo(TiXmlElement& element) {
    bool changed = false;
    ForEach(element.FirstChildElement("Video"), "Input", [&](TiXmlElement& input) {
        if (HasInt(input, "Number", 0)) changed |= m_Input.ParseInput(&input);
    });
    return changed;
}

// A transfer that is under way answers the old settings, so it is given up.
bool CDevice::ParseCodec(TiXmlElement& element) {
    TiXmlElement* const codec = element.FirstChildElement("Codec");
    bool changed = false;
    ForEach(codec != nullptr ? codec->FirstChildElement("Encoder") : nullptr, "Channel",
            [&](TiXmlElement& channel) {
                if (HasInt(channel, "Number", 0)) {
                    changed |= m_Input.ParseChannel(&channel);
                    Close();
                }
            });
    return changed;
}

bool CDevice::ParseTrigger(TiXmlElement& element) {
    TiXmlElement* const trigger = element.FirstChildElement("Trigger");
    ForEach(trigger, "Input", [&](const TiXmlElement& input) {
        ParseTerminal(input, "NormallyClosed", m_sInputName, m_bNormallyClosed);
    });
    ForEach(trigger, "Output", [&](const TiXmlElement& output) {
        ParseTerminal(output, "NormallyLow", m_sOutputName, m_bNormallyLow);
    });
    return trigger != nullptr;
}

void CDevice::FillDevice(TiXmlElement& element) {
    element.SetAttribute("Number", static_cast<int>(m_nNumber));
    element.SetAttribute("Enabled", m_bEnabled ? 1 : 0);
    element.SetAttribute("ipAddress", m_sAddress);
    element.SetAttribute("username", "");
    element.SetAttribute("password", "");
    element.SetAttribute("Name", m_wModel);
    element.SetAttribute("Serial", m_Input.MAC());
    element.SetAttribute("Firmware", m_wFirmware);
    TiXmlElement& video = AddElement(element, "Video");
    video.SetAttribute("Inputs", 1);
    m_Input.FillInput(AddElement(video, "Input"));
    FillCodec(AddElement(element, "Codec"));
    FillTrigger(AddElement(element, "Trigger"));
}

void CDevice::FillCodec(TiXmlElement& codec) {
    codec.SetAttribute("MinStandard", 0);
    codec.SetAttribute("MaxStandard", m_wModel % 10);
    m_Input.AddResolutions(codec);
    TiXmlElement& framerate = AddElement(codec, "Framerate");
    framerate.SetAttribute("Min", "1");
    framerate.SetAttribute("Max", m_Sensor.IsValid() ? m_Sensor.Maximum() : DefaultMaxFramerate);
    TiXmlElement& encoder = AddElement(codec, "Encoder");
    encoder.SetAttribute("Number", 0);
    encoder.SetAttribute("Running", m_Input.m_dwKeyFrameTime != 0 ? 1 : 0);
    const int zone = (m_wZones & ZoneScaleMask) >> 8;
    m_Input.FillChannel(AddElement(encoder, "Channel"), static_cast<unsigned short>(zone * ZonePixels));
}

void CDevice::FillTrigger(TiXmlElement& trigger) const {
    trigger.SetAttribute("Inputs", 1);
    trigger.SetAttribute("Outputs", 1);
    TiXmlElement& input = AddElement(trigger, "Input");
    input.SetAttribute("Number", 0);
    input.SetAttribute("Name", m_sInputName);
    input.SetAttribute("NormallyClosed", m_bNormallyClosed ? 1 : 0);
    TiXmlElement& output = AddElement(trigger, "Output");
    output.SetAttribute("Number", 0);
    output.SetAttribute("Name", m_sOutputName);
    output.SetAttribute("NormallyLow", m_bNormallyLow ? 1 : 0);
    output.SetAttribute("Relay", 0);
}

void CDevice::WriteDevice(TiXmlElement* element) {
    ForEach(element->FirstChildElement("Video"), "Input", [&](TiXmlElement& input) {
        if (HasInt(input, "Number", 0)) m_Input.WriteInput(&input);
    });
    ForEach(element->FirstChildElement("Trigger"), "Output",
            [&](const TiXmlElement& output) { WriteOutput(output); });
}
