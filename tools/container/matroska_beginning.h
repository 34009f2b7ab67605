// What stands in a Matroska file before its first picture.
#pragma once

#include <cstdint>
#include <optional>

#include "host/picture_format.h"

namespace plendix {

/// Of a file that is closed.
struct MatroskaEnd {
    std::uint64_t file_bytes = 0;
    std::uint64_t cues_position = 0;  // in the file
    std::int64_t duration_ms = 0;
};

/// Takes as many bytes for a file that is still open as for the same one closed. Throws Failure where
/// there is no parameter set in H.264 parameter sets.
Bytes matroska_beginning(const PictureFormat& format, std::int64_t start_ms,
                         const std::optional<MatroskaEnd>& end);

/// Positions in the file count from here.
std::uint64_t matroska_origin();

/// Whether H.264 parameter sets are those of a byte stream, and not as a file has them.
bool is_byte_stream(const Bytes& parameter_sets);

}  // namespace plendix
