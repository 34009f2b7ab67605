// Pictures as the driver delivers them, for the tests of the host.
#pragma once

#include <cstdint>
#include <vector>

/// Encodes `count` pictures. JPEG: whole files. H.264: byte streams, every tenth begins with
/// parameter sets and an IDR picture, and each ends with the delimiter of the next unit.
std::vector<std::vector<std::uint8_t>> encode_pictures(bool h264, int count, int width, int height);
