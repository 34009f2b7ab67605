// The formats in which a camera's pictures leave while they come: bytes for whoever sends them on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/picture_format.h"

namespace plendix {

enum class StreamFormat { matroska, mpeg_ts, jpeg_parts, mp4 };

/// "mkv", "ts", "mjpeg", "mp4". Throws UsageError, which names the value.
StreamFormat parse_stream_format(const std::string& text);
/// "Matroska", "MPEG-TS", "multipart JPEG", "MP4"
const char* format_name(StreamFormat format);
/// Whether it has pictures of this codec.
bool carries(StreamFormat format, FrameCodec codec);

/// One stream to one reader; it may end behind any picture. Every picture leaves with the call that brings
/// it: nothing is held back. What is returned lies in the writer and in the picture, until the next call. One
/// thread.
class LiveWriter {
public:
    LiveWriter() = default;
    virtual ~LiveWriter() = default;
    LiveWriter(const LiveWriter&) = delete;
    LiveWriter& operator=(const LiveWriter&) = delete;

    /// For HTTP.
    virtual const char* media_type() const = 0;
    /// Before the first picture, and before one whose format is another. Throws Failure when the format
    /// cannot be carried. `start_ms` is UTC since 1970, of time 0.
    virtual void begin(const PictureFormat& format, std::int64_t start_ms) = 0;
    /// A JPEG picture, or the units of an H.264 picture without parameter sets; what the stream has to
    /// say before comes with it. `time_ms` counts from the
    /// stream's first picture and is another for each.
    virtual const Pieces& write(const Pieces& picture, bool key, std::int64_t time_ms) = 0;
};

std::unique_ptr<LiveWriter> make_live_writer(StreamFormat format);

}  // namespace plendix
