// What a camera is asked next. One request at a time; the order below is the order of needs.
#include "device/device.h"
#include "device/registers.h"
#include "platform/clock.h"
#include "platform/descriptor_set.h"
#include "plugin/Plendix.h"

namespace {

constexpr std::uint32_t StallMilliseconds = 10000;  // without an answer the transfer is given up
constexpr std::uint32_t CycleMilliseconds = 500;    // between input polls, and between output updates

// The register value that stands for a setting, on wrapping arithmetic: the host may set anything.
std::uint16_t BrightnessTarget(std::int32_t brightness) {
    return static_cast<std::uint16_t>(2 * static_cast<std::uint32_t>(brightness) - 1);
}

std::uint16_t SaturationTarget(std::int32_t saturation) {
    // saturation * 6 / 100 without 64 bits
    return static_cast<std::uint16_t>(saturation / 50 * 3 + saturation % 50 * 3 / 50);
}

std::uint16_t SharpnessTarget(std::int32_t sharpness) {
    return static_cast<std::uint16_t>(sharpness / 25);
}

std::uint16_t ReplaceBits(std::uint16_t value, std::uint16_t mask, unsigned int bits) {
    return static_cast<std::uint16_t>((value & ~unsigned{mask}) | (bits & mask));
}

}  // namespace

int CDevice::Set(fd_set& readset, fd_set&, fd_set&) {
    CPassClock clock;
    return Set(readset, clock);
}

bool CDevice::IsSet(const fd_set& readset, const fd_set&, const fd_set&) {
    CPassClock clock;
    return IsSet(readset, clock);
}

int CDevice::Set(fd_set& readset, CPassClock& clock) {
    if (!m_bEnabled) {
        Close();
        return -1;
    }
    if (m_Socket == -1) {
        Open();
        clock.Forget();  // the name service may have taken its time
    } else if (m_dwSendTime == 0) {
        ReadWrite(clock.Now());
        const bool waits = m_Socket != -1 && m_dwSendTime == 0 && m_bEnabled;
        if (!waits) clock.Forget();  // and so may the host
    }
    if (m_Socket == -1) return -1;
    AddDescriptor(m_Socket, readset);
    return m_Socket;
}

bool CDevice::IsSet(const fd_set& readset, CPassClock& clock) {
    if (m_Socket == -1) return false;
    if (HasDescriptor(m_Socket, readset)) return Recv() != 0;
    if (m_dwSendTime == 0 || clock.Now() - m_dwSendTime <= StallMilliseconds) return false;
    Trace(LogWarning, "%s timeout", m_sAddress.c_str());
    LinkReset();
    Close();
    return false;
}

void CDevice::ReadWrite(std::uint32_t now) {
    if (Identify() || SettlePicture() || ReadSensor() || SettleMotion() || ServeInputOutput(now)) return;
    RequestVideo(now);
}

// Each of the following returns true when it has taken this turn.

bool CDevice::Identify() {
    if (m_wModel == NotRead)
        Read(RegModel);
    else if (m_wModel % 100 > LastSupportedModel)
        SwitchOff("Model %u is not supported", m_wModel);
    else if (m_wFirmware == NotRead)
        Read(RegFirmware);
    else if (m_wFirmware <= LastRefusedFirmware)
        SwitchOff("Version %u is not supported", m_wFirmware);
    else
        return false;
    return true;
}

bool CDevice::SettlePicture() {
    const std::uint16_t brightness = BrightnessTarget(m_Input.m_nBrightness);
    const std::uint16_t saturation = SaturationTarget(m_Input.m_nSaturation);
    const std::uint16_t sharpness = SharpnessTarget(m_Input.m_nSharpness);
    if (m_wBrightness == NotRead)
        Read(RegBrightness);
    else if (m_wBrightness != brightness)
        Write(RegBrightness, brightness);
    else if (m_wSaturation == NotReadOnes)
        Read(RegSaturation);
    else if (m_wSaturation != saturation)
        Write(RegSaturation, saturation);
    else if (m_wSharpness == NotReadOnes)
        Read(RegSharpness);
    else if (m_wSharpness != sharpness)
        Write(RegSharpness, sharpness);
    else
        return false;
    return true;
}

bool CDevice::ReadSensor() {
    if (m_Sensor.x0 == NotReadOnes)
        Read(RegSensorLeft);
    else if (m_Sensor.y0 == NotReadOnes)
        Read(RegSensorTop);
    else if (m_Sensor.x1 == NotRead)
        Read(RegSensorRight);
    else if (m_Sensor.y1 == NotRead)
        Read(RegSensorBottom);
    else
        return false;
    return true;
}

bool CDevice::SettleMotion() {
    const auto scale = static_cast<unsigned int>(ZoneScale()) << 8;
    if (m_wMotion == NotReadOnes)
        Read(RegMotion);
    else if ((m_wMotion & MotionEnabled) == 0)
        Write(RegMotion, static_cast<std::uint16_t>(m_wMotion | MotionEnabled));
    else if (m_wZones == NotRead)
        Read(RegZones);
    else if ((m_wZones & ZoneScaleMask) != scale)
        Write(RegZones, ReplaceBits(m_wZones, ZoneScaleMask, scale));
    else if (m_wThreshold == NotRead)
        Read(RegThreshold);
    else if (!WriteThreshold()) {
        if (m_wReg79 != NotRead) return false;
        Write(Reg79, Reg79Value);
    }
    return true;
}

bool CDevice::WriteThreshold() {
    const unsigned int zones = HalfZoneCount();
    const unsigned int threshold = MotionSensitivityLevels[m_Input.m_nSensitivity - 1];
    if (unsigned{m_wThreshold} >> 8 != zones)
        Write(RegThreshold, ReplaceBits(m_wThreshold, 0xFF00, zones << 8));
    else if ((m_wThreshold & 255U) != threshold)
        Write(RegThreshold, ReplaceBits(m_wThreshold, 0x00FF, threshold));
    else
        return false;
    return true;
}

bool CDevice::ServeInputOutput(std::uint32_t now) {
    if (now - m_dwPollTime > CycleMilliseconds) {
        m_dwPollTime = now;
        Write(RegIO, IOPoll);
    } else if (m_wIO == IOPoll) {
        Read(RegIO);
    } else if (now - m_dwOutputTime > CycleMilliseconds) {
        m_dwOutputTime = now;
        UpdateOutput();
    } else {
        return false;
    }
    return true;
}

void CDevice::RequestVideo(std::uint32_t now) {
    if (!m_Input.m_bEnabled || !m_Input.m_Active.IsValid()) return;
    const std::int32_t rate = m_Input.m_nFramerate;
    if (rate > 0 && now - m_Input.m_dwRequestTime < 1000U / static_cast<std::uint32_t>(rate)) return;
    m_cRegister = 0;  // of a register request that was never sent
    Request(m_Input.Request(now).c_str());
}

void CDevice::SwitchOff(const char* format, unsigned int value) {
    Trace(LogWarning, format, value);
    m_bEnabled = false;
}
