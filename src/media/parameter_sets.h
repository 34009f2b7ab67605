// H.264 sequence and picture parameter sets, and the access unit delimiter, in byte-stream form
// (ITU-T H.264 clauses 7.3.2.1, 7.3.2.2, 7.3.2.4 and Annex B). Pure functions, any thread.
#pragma once

constexpr int MacroblockSize = 16;  // pixels, both ways

// What create_unit_delimiter writes for primary_pic_type 0.
constexpr unsigned char UnitDelimiter[] = {0x00, 0x00, 0x01, 0x09, 0x10};

// Writes an SPS (Baseline, level 3.2, no cropping) and a PPS (CAVLC) with 3-byte start codes.
// width and height in pixels describe whole macroblocks: a rest below 16 is cut off, and sizes
// below 16 cannot be expressed. Returns the bytes written, at most 22; buf must be 4 bytes longer.
int create_sps_pps(int width, int height, int deblocking_off, unsigned char* buf, int size);

// Writes 00 00 01 09 and the given primary_pic_type (low 3 bits). Returns 5; needs 9 bytes.
int create_unit_delimiter(int primary_pic_type, unsigned char* buf, int size);
