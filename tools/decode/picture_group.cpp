#include "decode/picture_group.h"

#include "decode/picture_decoder.h"

namespace plendix {

std::string PictureGroup::add(const RawTransfer& transfer) {
    std::string trouble = order_.take(transfer);
    if (trouble.empty())
        pictures_.push_back(
            link::make_picture({transfer.payload.data(), transfer.payload.size()}, transfer.trailer));
    return trouble;
}

std::vector<PictureGroup::Decoded> PictureGroup::decode() {
    PictureDecoder decoder(AV_CODEC_ID_H264);
    std::vector<Decoded> decoded(pictures_.size());
    for (std::size_t i = 0; i < pictures_.size(); ++i)
        decoded[i].trouble = decoder.feed(pictures_[i]);
    const std::string trouble = decoder.finish();
    if (!decoded.empty() && decoded.back().trouble.empty()) decoded.back().trouble = trouble;
    pictures_.clear();
    order_.end();
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
