// A camera link past its identification.
#pragma once

#include <iterator>

#include "device/device.h"
#include "platform/clock.h"

// The registers of a camera that agrees with the driver and was polled just now; a bit of unread
// leaves one to be asked for.
inline void Identify(CDevice& device, unsigned unread) {
    std::uint16_t* const registers[] = {&device.m_wModel,  &device.m_wFirmware,  &device.m_wBrightness,
                                        &device.m_wMotion, &device.m_wZones,     &device.m_wSaturation,
                                        &device.m_wReg79,  &device.m_wSharpness, &device.m_wThreshold};
    const std::uint16_t agreeing[] = {105, 61750, 99, 1, 0x0700, 3, 1, 2, 0x1110};
    for (unsigned i = 0; i < std::size(agreeing); ++i)
        if ((unread >> i & 1) == 0) *registers[i] = agreeing[i];
    if (unread < 1 << 15) device.m_Sensor = {0, 0, 1600, 1200};
    device.m_dwPollTime = device.m_dwOutputTime = timeGetTime();
    device.Parameter(1, 0);  // any answer makes the picture area known
}
