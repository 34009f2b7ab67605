// The JPEG header that the cameras leave out (ITU-T T.81 Annex B). Pure function, any thread.
#pragma once

#include <vector>

constexpr int JpegHeaderSize = 595;  // bytes that CalculateHeader appends, always

// The coarsest tables come with 0; from 27 on every quantiser would be 0, which T.81 forbids,
// so such a picture cannot be decoded.
constexpr unsigned char JpegQualityLimit = 27;

// Appends SOI to SOS for a baseline 4:2:2 picture with the restart interval 16 and the standard
// Huffman tables. width and height in pixels; quality as the camera reports it, 20 the finest
// that is ever requested.
void CalculateHeader(std::vector<unsigned char>& header, int width, int height, unsigned char quality);
