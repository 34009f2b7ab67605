// Pictures in a row, decoded by a stock decoder that forgives nothing. One at a time in a process, for
// libav's log is listened to.
#pragma once

#include <utility>
#include <vector>

#include "ffmpeg.h"
#include "host/libav_complaints.h"
#include "link/packet.h"

namespace plendix {

class PictureDecoder {
public:
    /// AV_CODEC_ID_MJPEG or AV_CODEC_ID_H264. Throws Failure where libav has none.
    explicit PictureDecoder(AVCodecID codec);

    /// The next picture, as the driver delivers it. What the decoder complained about, or empty. What
    /// comes out of it may be later by some pictures.
    std::string feed(const link::Bytes& picture);
    /// No picture follows.
    std::string finish() { return decode(nullptr); }

    /// What came out so far, in order.
    const std::vector<LibavPointer<AVFrame>>& pictures() const { return pictures_; }
    std::vector<LibavPointer<AVFrame>> take_pictures() { return std::exchange(pictures_, {}); }

private:
    std::string decode(const AVPacket* packet);

    LibavComplaints complaints_;
    LibavPointer<AVCodecContext> decoder_;
    std::vector<LibavPointer<AVFrame>> pictures_;
};

}  // namespace plendix
