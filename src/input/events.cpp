// What the input reports to the host: frames, and motion and connection documents.
#include <tinyxml.h>

#include <algorithm>
#include <cstring>

#include "input/input.h"
#include "platform/xml.h"
#include "plugin/Plendix.h"

namespace {

constexpr std::uint32_t VideoClass = 0x1000000;

}  // namespace

void CInput::FireVideo(char* frame, int length, unsigned long codec, unsigned char type, bool motion,
                       unsigned char* map, unsigned long mapLength) {
    const pt::datetime now = pt::now(true);
    if (!m_bConnected) {
        m_bConnected = true;
        FireConnected(static_cast<long>(pt::unixseconds(now)));
        Trace(LogInfo, "%s receiving video", m_sName.c_str());
    }
    if ((motion ? 1 : 0) != m_nMotion) {
        m_nMotion = motion ? 1 : 0;
        FireMotion(now);
    }

    _EventParmsIn in = NewEvent(EventKindVideo, VideoClass | static_cast<std::uint32_t>(codec), SourceId());
    in.DataLength = static_cast<std::uint32_t>(length);
    in.Data = frame;
    in.VideoSize = sizeof(in) - offsetof(_EventParmsIn, VideoSize);
    in.VideoVersion = 1;
    in.FrameSeconds = static_cast<std::uint32_t>(pt::unixseconds(now));
    in.FrameMilliseconds = static_cast<std::uint16_t>(pt::milliseconds(now));
    in.FrameType = type;
    if (motion) in.FrameFlags |= FrameFlagMotion;
    if (ExpireActions(m_Actions, now)) in.FrameFlags |= FrameFlagRecording;
    if (map != nullptr) {
        in.MotionLength = static_cast<std::uint32_t>(std::min<std::size_t>(mapLength, sizeof(in.MotionMap)));
        std::memcpy(in.MotionMap, map, in.MotionLength);
    }
    DeliverEvent(in, "video");
}

void CInput::FireMotion(const long long& now) {
    TiXmlElement video("Video");
    TiXmlElement& input = AddElement(video, "Input");
    input.SetAttribute("Number", static_cast<int>(m_nNumber));
    input.SetAttribute("Motion", m_nMotion);
    SetTime(input, now);
    input.SetAttribute("Context", 0);
    FireAlarm(video);
}

void CInput::FireConnected(long time) {
    TiXmlElement codec("Codec");
    TiXmlElement& encoder = AddElement(codec, "Encoder");
    encoder.SetAttribute("Number", 0);
    TiXmlElement& channel = AddElement(encoder, "Channel");
    channel.SetAttribute("Number", static_cast<int>(m_nNumber));
    channel.SetAttribute("Connected", m_bConnected ? 1 : 0);
    channel.SetAttribute("Time", static_cast<int>(time));
    FireAlarm(codec);
}

void CInput::FireAlarm(const TiXmlElement& element) {
    FireDeviceEvent(m_nDevice, element);
}
