// A rectangle of sensor pixels.
#pragma once

#include <cstdint>

// Right and bottom are exclusive; the default is the invalid rectangle.
class CRectangle {
public:
    std::uint16_t x0 = 0xFFFF;
    std::uint16_t y0 = 0xFFFF;
    std::uint16_t x1 = 0;
    std::uint16_t y1 = 0;

    bool IsValid() const { return x0 < x1 && y0 < y1; }

    // Both modulo 2^16.
    std::uint16_t Width() const { return static_cast<std::uint16_t>(x1 - x0); }
    std::uint16_t Height() const { return static_cast<std::uint16_t>(y1 - y0); }

    // The highest frame rate of a sensor of this size, in frames per second.
    int Maximum() const;
};
