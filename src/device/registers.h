// The camera's registers, all on register page 3, 16 bits each.
#pragma once

#include <cstdint>

#include "input/rectangle.h"

enum Register : char {
    RegBrightness = 2,
    RegSaturation = 15,
    RegSharpness = 16,
    RegIO = 25,  // trigger input and relay output
    RegSensorLeft = 70,
    RegSensorTop = 71,
    RegSensorRight = 72,   // exclusive
    RegSensorBottom = 73,  // exclusive
    Reg79 = 79,            // written once per connection
    RegMotion = 109,       // bit 0 enabled, bit 1 mode, bits 8-15 detail
    RegZones = 110,        // bits 8-11 zone scale
    RegThreshold = 111,    // bits 0-7 threshold, bits 8-15 half the number of zones
    RegModel = 122,
    RegFirmware = 123,
};

constexpr unsigned int LastSupportedModel = 5;       // in a model's last two digits
constexpr unsigned int LastRefusedFirmware = 61704;  // 0xF108

// What a record holds until its camera has answered. A camera that answers just this is asked again.
constexpr std::uint16_t NotRead = 0;
constexpr std::uint16_t NotReadOnes = 65535;  // where 0 is a value like others

// What the camera said of its registers. A link reset assigns this anew, so that the camera is
// identified and settled again.
struct CRegisterRecords {
    std::uint16_t m_wModel = NotRead;
    std::uint16_t m_wFirmware = NotRead;
    CRectangle m_Sensor;  // not read: x0 and y0 NotReadOnes, x1 and y1 NotRead
    std::uint16_t m_wReg79 = NotRead;
    std::uint16_t m_wBrightness = NotRead;
    std::uint16_t m_wSaturation = NotReadOnes;
    std::uint16_t m_wSharpness = NotReadOnes;
    std::uint16_t m_wMotion = NotReadOnes;
    std::uint16_t m_wZones = NotRead;
    std::uint16_t m_wThreshold = NotRead;
};

constexpr std::uint16_t Reg79Value = 0x3014;
constexpr std::uint16_t MotionEnabled = 1;
constexpr std::uint16_t ZoneScaleMask = 0x0F00;
constexpr int ZonePixels = 32;  // sensor pixels in one unit of the zone scale

// Values of RegIO.
constexpr std::uint16_t IOPoll = 0x30;       // written: input poll; in an answer these bits mean "no reading"
constexpr std::uint16_t IOOutputLow = 0x10;  // written
constexpr std::uint16_t IOOutputHigh = 0x20;
constexpr std::uint16_t IOInputLevel = 1;  // in a reading

// Motion threshold of each Sensitivity, 1 to 10.
constexpr std::uint32_t MotionSensitivityLevels[10] = {31, 28, 25, 22, 19, 16, 13, 10, 7, 4};
