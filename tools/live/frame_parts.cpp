#include "live/frame_parts.h"

namespace plendix {

bool FrameParts::take_apart(const Frame& frame, PictureFormat& format) {
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

bool FrameParts::take(const Frame& frame) {
    if (needs_key_ && !frame.key) return false;
    PictureFormat format;
    needs_key_ = !take_apart(frame, format);
    if (needs_key_) {
        ++unreadable_;
        return false;
    }
    changed_ = !(format == format_);
    if (changed_) format_ = format;
    return true;
}

}  // namespace plendix
