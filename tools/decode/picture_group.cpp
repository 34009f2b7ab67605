#include "decode/picture_group.h"

#include "decode/picture_decoder.h"
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

std::string PictureGroup::add(const RawTransfer& transfer) {
    const link::View payload{transfer.payload.data(), transfer.payload.size()};
    const auto slice = has_start_code(payload) ? std::nullopt : read_slice_header(payload);
    if (transfer.trailer.key) {
        number_ = 0;
    } else {
        const unsigned number = slice ? slice->frame_number : (number_ + 1) % frame_numbers;
        if (pictures_.empty())
            return "it is picture " + std::to_string(number) +
                   " of its group, which begins with a key frame: give the key frame and those between first";
        const unsigned due = (number_ + 1) % frame_numbers;
        if (number != due) return missing(due, number);
        number_ = number;
    }
    pictures_.push_back(link::make_picture(payload, transfer.trailer));
    return {};
}

std::vector<PictureGroup::Decoded> PictureGroup::decode() {
    PictureDecoder decoder(AV_CODEC_ID_H264);
    std::vector<Decoded> decoded(pictures_.size());
    for (std::size_t i = 0; i < pictures_.size(); ++i)
        decoded[i].trouble = decoder.feed(pictures_[i]);
    const std::string trouble = decoder.finish();
    if (!decoded.empty() && decoded.back().trouble.empty()) decoded.back().trouble = trouble;
    pictures_.clear();
    auto pictures = decoder.take_pictures();
    // A picture that was not decoded leaves it open whose the others are, so it ends the group.
    std::size_t good = 0;
    while (good < decoded.size() && decoded[good].trouble.empty() && good < pictures.size()) {
        decoded[good].picture = std::move(pictures[good]);
        ++good;
    }
    for (std::size_t i = good; i < decoded.size(); ++i)
        if (decoded[i].trouble.empty()) decoded[i].trouble = "a picture in front of it does not decode";
    return decoded;
}

}  // namespace plendix
