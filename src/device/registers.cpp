// The camera's registers: reading, writing, and what an answer means.
#include "device/registers.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "device/device.h"
#include "plugin/Plendix.h"

namespace {

constexpr int NameSize = 48;

// A register number as it is written out: signed, whether the machine's char is or not.
int Number(char reg) {
    return static_cast<signed char>(reg);
}

// Levels are tried from the least sensitive on; a threshold below all entries is the highest level.
int SensitivityLevel(unsigned int threshold) {
    const auto* const last = std::end(MotionSensitivityLevels) - 1;
    const auto* const level = std::find_if(std::begin(MotionSensitivityLevels), last,
                                           [=](std::uint32_t entry) { return entry <= threshold; });
    return static_cast<int>(level - std::begin(MotionSensitivityLevels)) + 1;
}

}  // namespace

void CDevice::Read(char reg) {
    char name[NameSize];
    std::snprintf(name, sizeof(name), "getreg?page=3;reg=%d;", Number(reg));
    m_cRegister = reg;
    Request(name);
}

void CDevice::Write(char reg, unsigned short value) {
    char name[NameSize];
    std::snprintf(name, sizeof(name), "setreg?page=3;reg=%d;val=%u;", Number(reg), unsigned{value});
    m_cRegister = reg;
    Request(name);
}

bool CDevice::Parameter(char reg, unsigned short value) {
    const bool changed = StoreRegister(reg, value);
    return InitInput() || changed;
}

// Stores an answer and applies it to the input's settings; true when the host sees a change.
bool CDevice::StoreRegister(char reg, unsigned short value) {
    const int v = value;
    switch (reg) {
        case RegBrightness:
            m_wBrightness = value;
            m_Input.m_nBrightness = (v + 1) / 2;
            return true;
        case RegSaturation:
            m_wSaturation = value;
            m_Input.m_nSaturation = (100 * v + 100) / 7;
            return true;
        case RegSharpness:
            m_wSharpness = value;
            m_Input.m_nSharpness = (v + 1) * 20;
            return true;
        case RegThreshold:
            m_wThreshold = value;
            m_Input.m_nSensitivity = SensitivityLevel(value & 255U);
            Trace(LogDebug, "motion threshold %u exposure sensitivity %u", value & 255U,
                  unsigned{value} >> 8);
            return true;
        case RegIO:
            m_wIO = value;
            DecodeInput(value);
            return false;
        default:
            StoreQuietRegister(reg, value);
            return false;
    }
}

// The registers whose answer alone is no reason to send the configuration.
void CDevice::StoreQuietRegister(char reg, unsigned short value) {
    const unsigned int v = value;
    switch (reg) {
        case RegSensorLeft:
            m_Sensor.x0 = value;
            break;
        case RegSensorTop:
            m_Sensor.y0 = value;
            break;
        case RegSensorRight:
            m_Sensor.x1 = value;
            break;
        case RegSensorBottom:
            m_Sensor.y1 = value;
            Trace(LogDebug, "sensor %ux%u", unsigned{m_Sensor.Width()}, unsigned{m_Sensor.Height()});
            break;
        case Reg79:
            m_wReg79 = value;
            break;
        case RegMotion:
            m_wMotion = value;
            Trace(LogDebug, "motion detail %u, mode %u, enable %u", v >> 8, (v >> 1) & 1, v & 1);
            break;
        case RegZones:
            m_wZones = value;
            Trace(LogDebug, "motion zones %u zone size %u", (v >> 8) & 15, v & 255);
            break;
        case RegModel:
            m_wModel = value;
            break;
        case RegFirmware:
            m_wFirmware = value;
            break;
        default:
            Trace(LogDebug, "received register %d val %u", Number(reg), v);
            break;
    }
}

// The edge of a square motion zone in units of 32 sensor pixels, such that at most 8 zones lie
// across and down. The register has 4 bits for it; a larger sensor keeps unwatched margins.
int CDevice::ZoneScale() const {
    const int scale = std::max((m_Sensor.Width() + 255) / 256, (m_Sensor.Height() + 255) / 256);
    return std::clamp(scale, 1, 15);
}

std::uint16_t CDevice::HalfZoneCount() const {
    const int scale = ZoneScale();
    const int across = std::min(m_Sensor.Width() / scale / ZonePixels, MotionZones);
    const int down = std::min(m_Sensor.Height() / scale / ZonePixels, MotionZones);
    return static_cast<std::uint16_t>(across * down / 2);
}
