// Reads a recorded file back, as any player would.
#pragma once

#include <filesystem>

#include "ffmpeg.h"

namespace plendix {

/// A file opened for reading, and the decoder for its video track. Throws Failure when the
/// file cannot be opened or has no video.
class MovieFile {
public:
    explicit MovieFile(const std::filesystem::path& file);

    /// The next video packet; false at the end. Throws Failure when the file is damaged.
    bool read(AVPacket& packet);
    /// Goes on with the key frame at or before this time in the file; false where it cannot.
    bool seek(std::int64_t time_ms);
    /// Goes on with the last key frame that the file's index knows; false where it cannot.
    bool seek_end();
    /// A decoder that refuses what it would otherwise repair silently.
    LibavPointer<AVCodecContext> strict_decoder() const;

    /// UTC since 1970 of time 0 in the file; 0 when the file does not tell.
    std::int64_t start_ms() const;

    const AVStream& video() const { return *stream_; }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    LibavPointer<AVFormatContext> context_;
    AVStream* stream_ = nullptr;
};

}  // namespace plendix
