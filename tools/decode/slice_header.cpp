#include "decode/slice_header.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::size_t enough = 32;    // bytes, for all that is read
constexpr int longest_prefix = 20;    // zero bits of a code
constexpr int frame_number_bits = 4;  // as the sequence parameter set says

/// Bits of the raw byte sequence payload (clause 7.3.1): emulation prevention bytes left out.
class Bits {
public:
    explicit Bits(link::View bytes) {
        int zeros = 0;
        for (std::size_t i = 0; i < std::min(bytes.size, enough); ++i) {
            const std::uint8_t byte = bytes.data[i];
            if (zeros < 2 || byte != 3) bytes_.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
    }

    bool good() const { return good_; }

    unsigned bits(int count) {
        unsigned value = 0;
        for (int i = 0; i < count; ++i)
            value = value << 1U | bit();
        return value;
    }

    /// ue(v), clause 9.1.
    unsigned code() {
        int zeros = 0;
        while (good_ && bit() == 0)
            good_ = ++zeros <= longest_prefix;
        return good_ ? (1U << static_cast<unsigned>(zeros)) - 1 + bits(zeros) : 0;
    }

private:
    unsigned bit() {
        good_ = good_ && at_ < 8 * bytes_.size();
        if (!good_) return 0;
        const unsigned shift = 7 - at_ % 8;
        return static_cast<unsigned>(bytes_[at_++ / 8]) >> shift & 1U;
    }

    link::Bytes bytes_;
    unsigned at_ = 0;
    bool good_ = true;
};

}  // namespace

bool has_start_code(link::View payload) {
    return payload.size > 1 && payload.data[0] == 0 && payload.data[1] == 0;
}

std::optional<SliceHeader> read_slice_header(link::View slice) {
    Bits bits(slice);
    SliceHeader header;
    header.first_macroblock = bits.code();
    header.type = bits.code();
    header.parameter_set = bits.code();
    header.frame_number = bits.bits(frame_number_bits);
    if (!bits.good() || header.type > 9) return std::nullopt;
    return header;
}

}  // namespace plendix
