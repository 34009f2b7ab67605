// Frame by frame, what a stream is made of: the picture's units and what they all have in common.
#pragma once

#include "host/frame.h"
#include "host/picture_format.h"

namespace plendix {

/// One thread, one camera's frames in order.
class FrameParts {
public:
    /// False for a frame that cannot be used: before the first key frame, after one that could not be read.
    bool take(const Frame& frame);

    /// Of the picture taken last.
    const PictureFormat& format() const { return format_; }
    /// That format is another than that of the picture before.
    bool changed() const { return changed_; }
    /// The JPEG file, or the units without parameter sets, in the frame's memory.
    const Pieces& picture() const { return parts_.picture; }
    std::uint64_t unreadable() const { return unreadable_; }

private:
    bool take_apart(const Frame& frame, PictureFormat& format);

    PictureFormat format_;
    bool changed_ = false;
    bool needs_key_ = true;
    std::uint64_t unreadable_ = 0;
    H264Frame parts_;  // kept for its memory
};

}  // namespace plendix
