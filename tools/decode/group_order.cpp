#include "decode/group_order.h"

#include "decode/slice_header.h"

namespace plendix {
namespace {

std::string missing(unsigned from, unsigned number) {
    const unsigned last = (number + frame_numbers - 1) % frame_numbers;
    const std::string others =
        from == last ? "picture " + std::to_string(from) + " is"
                     : "pictures " + std::to_string(from) + " to " + std::to_string(last) + " are";
    return "it is picture " + std::to_string(number) + " of its group, and " + others +
           " missing in front of it";
}

}  // namespace

std::string GroupOrder::take(const RawTransfer& transfer) {
    const link::View payload{transfer.payload.data(), transfer.payload.size()};
    unsigned number = transfer.trailer.key ? 0 : (number_ + 1) % frame_numbers;
    if (!transfer.trailer.key) {
        const unsigned due = number;
        const auto slice = has_start_code(payload) ? std::nullopt : read_slice_header(payload);
        if (slice) number = slice->frame_number;
        if (!begun_)
            return "it is picture " + std::to_string(number) +
                   " of its group, which begins with a key frame: give the key frame and those between first";
        if (number != due) return missing(due, number);
    }
    begun_ = true;
    number_ = number;
    return {};
}

}  // namespace plendix
