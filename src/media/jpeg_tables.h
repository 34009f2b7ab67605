// Constant tables of the JPEG header.
#pragma once

#include <cstdint>

namespace jpeg {

// The cameras' base quantisation tables in natural order: 0 chrominance, 1 luminance.
extern const std::int32_t std_qtables[2][64];

// Natural index (row * 8 + column) of each zig-zag position, T.81 Figure A.6.
extern const std::int32_t zigzag_index[64];

// T.81 Tables K.3 to K.6. Byte 0 of a bits array is never written; bytes 1 to 16 count the
// codes of 1 to 16 bits.
extern const std::uint8_t bits_dc_luminance[17];
extern const std::uint8_t val_dc_luminance[12];
extern const std::uint8_t bits_ac_luminance[17];
extern const std::uint8_t val_ac_luminance[162];
extern const std::uint8_t bits_dc_chrominance[17];
extern const std::uint8_t val_dc_chrominance[12];
extern const std::uint8_t bits_ac_chrominance[17];
extern const std::uint8_t val_ac_chrominance[162];

}  // namespace jpeg
