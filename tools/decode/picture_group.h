// H.264 pictures in the order of their group, and what comes out of them. One thread.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "decode/group_order.h"
#include "decode/picture_decoder.h"

namespace plendix {

class PictureGroup {
public:
    struct Decoded {
        LibavPointer<AVFrame> picture;
        std::string trouble;  // in place of a picture
    };
    /// Is handed one for each picture that was added, in order, and not before the next one is added or the
    /// group ends. A group may be of any length.
    using Hand = std::function<void(const Decoded& decoded)>;
    explicit PictureGroup(Hand hand) : hand_(std::move(hand)) {}

    /// Why the picture cannot follow those before it, or empty: then it does. Throws Failure where libav
    /// has no decoder.
    std::string add(const RawTransfer& transfer);
    /// Hands over what is left; the next picture begins a group then.
    void end();

private:
    void hand_over(std::size_t keep);
    Decoded next();

    const Hand hand_;
    GroupOrder order_;
    std::optional<PictureDecoder> decoder_;       // of this group
    std::deque<std::string> troubles_;            // of the pictures that are not handed over yet
    std::deque<LibavPointer<AVFrame>> pictures_;  // that came out and are not handed over yet
    bool broken_ = false;                         // one was not decoded
};

}  // namespace plendix
