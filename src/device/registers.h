// The camera's registers, all on register page 3, 16 bits each.
#pragma once

#include <cstdint>

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

constexpr unsigned int SupportedModels = 5;          // highest number in a model's last two digits
constexpr unsigned int LastRefusedFirmware = 61704;  // 0xF108

constexpr std::uint16_t Reg79Value = 0x3014;
constexpr std::uint16_t MotionEnabled = 1;
constexpr std::uint16_t ZoneScaleMask = 0x0F00;
constexpr int ZonePixels = 32;  // sensor pixels in one unit of the zone scale
constexpr int MaxZones = 8;     // across, and down

// Values of RegIO.
constexpr std::uint16_t IOPoll = 0x30;       // written: input poll; in an answer these bits mean "no reading"
constexpr std::uint16_t IOOutputLow = 0x10;  // written
constexpr std::uint16_t IOOutputHigh = 0x20;
constexpr std::uint16_t IOInputLevel = 1;  // in a reading

// Motion threshold of each Sensitivity, 1 to 10.
constexpr std::uint32_t MotionSensitivityLevels[10] = {31, 28, 25, 22, 19, 16, 13, 10, 7, 4};
