// H.264 pictures in the order of their group, and what comes out of them. One thread.
#pragma once

#include <string>
#include <vector>

#include "decode/raw_transfer.h"
#include "ffmpeg.h"

namespace plendix {

class PictureGroup {
public:
    /// Why the picture cannot follow those before it, or empty: then it does.
    std::string add(const RawTransfer& transfer);

    struct Decoded {
        LibavPointer<AVFrame> picture;
        std::string trouble;  // in place of a picture
    };
    /// One for each picture that was added, in order; the next one begins a group then. Throws Failure
    /// where libav has no decoder.
    std::vector<Decoded> decode();

private:
    std::vector<link::Bytes> pictures_;
    unsigned number_ = 0;  // of the last one
};

}  // namespace plendix
