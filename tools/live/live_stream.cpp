#include "live/live_stream.h"

#include <algorithm>

#include "usage.h"

namespace plendix {
namespace {

const char* codec_text(FrameCodec codec) {
    return codec == FrameCodec::h264 ? "H.264" : "JPEG";
}

}  // namespace

LiveStream::LiveStream(StreamFormat format) : kind_(format), writer_(make_live_writer(format)) {}

void LiveStream::begin(const Frame& frame) {
    const FrameCodec codec = format().codec;
    if (!carries(kind_, codec))
        throw Failure(std::string("the camera sends ") + codec_text(codec) + ", which " + format_name(kind_) +
                      " has no room for: take --format " +
                      (codec == FrameCodec::h264 ? "mkv or ts" : "mkv or mjpeg"));
    if (started_ && codec != codec_)
        throw Failure(std::string("the camera sends ") + codec_text(codec) + " now, no longer " +
                      codec_text(codec_) + ": this stream ends here, begin another");
    if (!started_) start_ms_ = frame.arrival_ms;
    writer_->begin(format(), frame.time_ms);
    codec_ = codec;
    started_ = true;
}

const Pieces& LiveStream::take(const Frame& frame) {
    static const Pieces nothing;
    if (!parts_.take(frame)) return nothing;
    if (parts_.changed()) begin(frame);
    last_ms_ = std::max(last_ms_ + 1, frame.arrival_ms - start_ms_);
    return writer_->write(parts_.picture(), frame.key, last_ms_);
}

}  // namespace plendix
