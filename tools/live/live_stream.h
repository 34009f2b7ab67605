// One camera's frames as a live stream: begins at a key frame, goes on over changes and pauses.
#pragma once

#include <memory>

#include "live/frame_parts.h"
#include "live/live_writer.h"

namespace plendix {

/// One thread. Where the bytes go is the caller's matter.
class LiveStream {
public:
    explicit LiveStream(StreamFormat format);

    /// What is to be sent for this frame; nothing before the first key frame and for one that cannot be
    /// used. It lies here and in the frame, until the next call. Throws Failure where the stream cannot
    /// go on: the camera sends what its format does not carry.
    const Pieces& take(const Frame& frame);

    /// Of the picture taken last; not usable before the first.
    const PictureFormat& format() const { return parts_.format(); }
    std::uint64_t unreadable() const { return parts_.unreadable(); }
    const char* media_type() const { return writer_->media_type(); }

private:
    void begin(const Frame& frame);

    const StreamFormat kind_;
    std::unique_ptr<LiveWriter> writer_;
    FrameParts parts_;
    bool started_ = false;
    FrameCodec codec_ = FrameCodec::jpeg;
    std::int64_t start_ms_ = 0;  // arrival of the first picture
    std::int64_t last_ms_ = -1;  // since then
};

}  // namespace plendix
