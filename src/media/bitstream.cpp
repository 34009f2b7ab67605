#include "media/bitstream.h"

namespace {

// Significant bits of 0 to 255; 0 counts as one bit.
constexpr std::int32_t i_size0_255[256] = {
    1, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5,
    6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6,
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,
    7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
    8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8};

int SignificantBits(std::uint32_t value) {
    int bits = 0;
    if (value >= 0x10000) {
        bits += 16;
        value >>= 16;
    }
    if (value >= 0x100) {
        bits += 8;
        value >>= 8;
    }
    return bits + i_size0_255[value];
}

std::uint8_t Append(std::uint8_t byte, int count, std::uint32_t bits) {
    return static_cast<std::uint8_t>((std::uint32_t{byte} << count) | bits);
}

}  // namespace

void bs_start(bs_s& bs, std::uint8_t* buf, int size) {
    bs.start = buf;
    bs.cur = buf;
    bs.end = buf + (size > 0 ? size : 0);
    bs.bits_left = 8;
}

void bs_write_bits(bs_s& bs, int count, std::uint32_t value) {
    if (bs.end - bs.cur <= 4) return;
    while (count > 0) {
        if (count < 32) value &= (std::uint32_t{1} << count) - 1;
        if (count < bs.bits_left) {
            *bs.cur = Append(*bs.cur, count, value);
            bs.bits_left -= count;
            return;
        }
        *bs.cur = Append(*bs.cur, bs.bits_left, value >> (count - bs.bits_left));
        count -= bs.bits_left;
        ++bs.cur;
        bs.bits_left = 8;
    }
}

void bs_write_bit(bs_s& bs, std::uint32_t bit) {
    if (bs.cur >= bs.end) return;
    *bs.cur = Append(*bs.cur, 1, bit & 1);
    if (--bs.bits_left == 0) {
        ++bs.cur;
        bs.bits_left = 8;
    }
}

void bs_write_ue(bs_s& bs, std::uint32_t value) {
    if (value == 0) {
        bs_write_bit(bs, 1);
        return;
    }
    const int bits = SignificantBits(value + 1);
    if (bits > 16) {  // code longer than one field
        bs_write_bits(bs, bits - 1, 0);
        bs_write_bits(bs, bits, value + 1);
    } else {
        bs_write_bits(bs, 2 * bits - 1, value + 1);
    }
}

void bs_write_trailing(bs_s& bs) {
    bs_write_bit(bs, 1);
    if (bs.bits_left != 8) bs_write_bits(bs, bs.bits_left, 0);
}

int bs_length(const bs_s& bs) {
    return static_cast<int>(bs.cur - bs.start);
}
