// What a clip is made of: the segments of a recording, as frames on the wall clock.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "ffmpeg.h"
#include "record/clip_export.h"
#include "record/matroska_writer.h"
#include "record/movie_file.h"
#include "record/segment_repair.h"

namespace plendix {

/// One segment's movie.
struct ClipSource {
    std::filesystem::path movie;
    std::int64_t start_ms = 0;  // UTC since 1970
    Playable playable{};
    PictureFormat format{};
};

/// In order of time; the first is the last one that begins at or before the span. Segments without a picture,
/// and those that the recorder has removed meanwhile, are left out. Throws Failure.
std::vector<ClipSource> clip_sources(const ClipPlan& plan);

/// Reads the frames of a source, which outlives it, from the key frame at or before a moment on, or from an
/// earlier one. Throws Failure.
class ClipReader {
public:
    ClipReader(const ClipSource& source, std::int64_t from_ms);

    /// Goes on to the next frame, which the others tell of; false at the end of what can be played.
    bool next();
    std::int64_t time_ms() const;  // UTC since 1970
    bool key() const;
    Pieces picture() const;  // until the next one

private:
    const ClipSource& source_;
    MovieFile movie_;
    LibavPointer<AVPacket> packet_;
};

}  // namespace plendix
