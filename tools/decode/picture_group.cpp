#include "decode/picture_group.h"

#include <utility>

namespace plendix {

std::string PictureGroup::add(const RawTransfer& transfer) {
    std::string trouble = order_.take(transfer);
    if (!trouble.empty()) return trouble;
    if (!decoder_) decoder_.emplace(AV_CODEC_ID_H264);
    troubles_.push_back(decoder_->feed(
        link::make_picture({transfer.payload.data(), transfer.payload.size()}, transfer.trailer)));
    hand_over(1);  // what the decoder says at the end is the last one's
    return {};
}

void PictureGroup::end() {
    order_.end();
    if (!decoder_) return;
    const std::string trouble = decoder_->finish();
    if (!troubles_.empty() && troubles_.back().empty()) troubles_.back() = trouble;
    hand_over(0);
    decoder_.reset();
    pictures_.clear();
    broken_ = false;
}

void PictureGroup::hand_over(std::size_t keep) {
    for (LibavPointer<AVFrame>& picture : decoder_->take_pictures())
        if (!broken_) pictures_.push_back(std::move(picture));
    while (troubles_.size() > keep) {
        const bool known = broken_ || !troubles_.front().empty() || !pictures_.empty();
        if (!known && keep > 0) return;
        hand_(next());
    }
}

PictureGroup::Decoded PictureGroup::next() {
    Decoded decoded;
    decoded.trouble = std::move(troubles_.front());
    troubles_.pop_front();
    // A picture that was not decoded leaves it open whose the others are, so it ends the group.
    if (decoded.trouble.empty() && (broken_ || pictures_.empty()))
        decoded.trouble = "a picture in front of it does not decode";
    broken_ = broken_ || !decoded.trouble.empty();
    if (broken_) return decoded;
    decoded.picture = std::move(pictures_.front());
    pictures_.pop_front();
    return decoded;
}

}  // namespace plendix
