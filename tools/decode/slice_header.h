// The beginning of a slice as cameras send it: without start code and first byte (ITU-T H.264 clause
// 7.3.3), read as the driver's parameter sets have it. Pure functions.
#pragma once

#include <optional>

#include "link/packet.h"

namespace plendix {

struct SliceHeader {
    unsigned first_macroblock = 0;
    unsigned type = 0;  // modulo 5: 0 P, 2 I
    unsigned parameter_set = 0;
    unsigned frame_number = 0;  // 4 bits
    bool intra() const { return type % 5 == 2; }
    bool predicted() const { return type % 5 == 0; }
};

/// Pictures count their number on modulo this; a key frame has 0.
constexpr unsigned frame_numbers = 16;

/// A payload of several units begins with a start code.
bool has_start_code(link::View payload);

/// Nothing where the bytes end too soon, or a code is too long to be one.
std::optional<SliceHeader> read_slice_header(link::View slice);

}  // namespace plendix
