#include "host/mask_code.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::size_t row_characters = 4;  // 3 bytes, of which the first holds the row
constexpr unsigned first_code = 32;        // the character of a group of six bits that are 0
constexpr unsigned all_ones = 63;
constexpr std::size_t first_columns = 6;  // in the first character of a row; the other two in the second

char character(unsigned group) {
    return static_cast<char>(first_code + group);
}

/// The bit of a column within the group that holds it.
unsigned column_bit(std::size_t column) {
    return 0x20U >> column % first_columns;
}

}  // namespace

std::string mask_code(const std::optional<MotionMask>& mask) {
    std::string code;
    for (std::size_t row = 0; row < 8; ++row) {
        std::string characters(row_characters, character(all_ones));
        const bool whole =
            !mask || std::all_of((*mask)[row].begin(), (*mask)[row].end(), [](bool on) { return on; });
        if (!whole) {
            unsigned groups[2] = {0, 0};
            for (std::size_t column = 0; column < 8; ++column)
                groups[column / first_columns] |= (*mask)[row][column] ? column_bit(column) : 0;
            characters = {character(groups[0]), character(groups[1]), character(0), character(0)};
        }
        code += characters;
    }
    return code;
}

std::optional<MotionMask> read_mask_code(const std::string& code) {
    MotionMask mask{};
    bool whole = true;
    for (std::size_t row = 0; row < 8; ++row) {
        for (std::size_t column = 0; column < 8; ++column) {
            const std::size_t place = row * row_characters + column / first_columns;
            const unsigned group =
                place < code.size() ? static_cast<unsigned char>(code[place]) - first_code : all_ones;
            mask[row][column] = (group & column_bit(column)) != 0;
            whole = whole && mask[row][column];
        }
    }
    if (whole) return std::nullopt;
    return mask;
}

}  // namespace plendix
