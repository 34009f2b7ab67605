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

/// Fills parts_.picture; false where there is nothing usable in the frame.
bool LiveStream::take_apart(const Frame& frame, PictureFormat& format) {
    if (frame.codec == FrameCodec::jpeg) {
        format = jpeg_format(frame.data);
        parts_.picture.assign(1, {frame.data.data(), frame.data.size()});
        return format.usable();
    }
    split_h264(frame.data, parts_);
    const bool same_sets = parts_.parameter_sets.empty() || parts_.parameter_sets == format_.parameter_sets;
    format = frame.key && !same_sets ? h264_format(parts_) : format_;
    return format.usable() && !parts_.picture.empty();
}

void LiveStream::begin(const PictureFormat& format, const Frame& frame) {
    if (!carries(kind_, format.codec))
        throw Failure(std::string("the camera sends ") + codec_text(format.codec) + ", which " +
                      format_name(kind_) + " has no room for: take --format " +
                      (format.codec == FrameCodec::h264 ? "mkv or ts" : "mkv or mjpeg"));
    if (started_ && format.codec != format_.codec)
        throw Failure(std::string("the camera sends ") + codec_text(format.codec) + " now, no longer " +
                      codec_text(format_.codec) + ": this stream ends here, begin another");
    if (!started_) start_ms_ = frame.arrival_ms;
    writer_->begin(format, frame.time_ms);
    format_ = format;
    started_ = true;
}

const Pieces& LiveStream::take(const Frame& frame) {
    static const Pieces nothing;
    if (needs_key_ && !frame.key) return nothing;
    PictureFormat format;
    needs_key_ = !take_apart(frame, format);
    if (needs_key_) {
        ++unreadable_;
        return nothing;
    }
    if (!(format == format_)) begin(format, frame);
    last_ms_ = std::max(last_ms_ + 1, frame.arrival_ms - start_ms_);
    return writer_->write(parts_.picture, frame.key, last_ms_);
}

}  // namespace plendix
