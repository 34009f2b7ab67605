// Motion maps and masks, zone (row r, column c) in bit 7 - c of byte 3 * r, and the text form of a
// mask: 3 bytes are 4 characters from " " (a zero group) to "_".
#pragma once

constexpr int MotionZones = 8;                               // across, and down
constexpr int MotionRowBytes = 3;                            // of which the first holds the zones
constexpr int MotionMapSize = MotionZones * MotionRowBytes;  // bytes of a map, and of a mask

// Encodes whole groups of 3 bytes, as many as capacity characters hold. Returns the characters
// written; writes no terminating NUL.
unsigned int uu_encode(const unsigned char* source, unsigned int length, char* destination,
                       unsigned int capacity);

// Decodes whole groups of 4 characters, whatever they are, as many as capacity bytes hold.
// Returns the bytes written.
unsigned int uu_decode(const char* source, unsigned int length, unsigned char* destination,
                       unsigned int capacity);
