// Most-significant-bit-first bit writer with the Exp-Golomb codes of ITU-T H.264 clause 9.1.
#pragma once

#include <cstdint>

// A byte is filled from the bottom, older bits moving up, so the buffer needs no clearing.
// A field that would begin within the last 4 bytes of the buffer is dropped whole.
struct bs_s {
    std::uint8_t* start;
    std::uint8_t* cur;
    std::uint8_t* end;
    std::int32_t bits_left;  // free positions in *cur, 8 down to 1
};

// Writes go to buf[0] .. buf[size - 1]; the caller keeps the buffer.
void bs_start(bs_s& bs, std::uint8_t* buf, int size);

// The low count bits of value, count 1 to 32.
void bs_write_bits(bs_s& bs, int count, std::uint32_t value);
void bs_write_bit(bs_s& bs, std::uint32_t bit);

// ue(v). The one value without a code, 2^32 - 1, comes out as a single 0 bit.
void bs_write_ue(bs_s& bs, std::uint32_t value);

// rbsp_trailing_bits: a stop bit, then zero bits up to the next byte.
void bs_write_trailing(bs_s& bs);

// Whole bytes written so far.
int bs_length(const bs_s& bs);
