// A movie's pictures as the driver delivered them.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

extern "C" {
#include <libavcodec/bsf.h>
}

#include "ffmpeg.h"
#include "host/frame.h"
#include "record/motion_file.h"
#include "record/movie_file.h"

namespace plendix {

/// One thread.
class RecordedFrames {
public:
    /// Begins with the key frame at or before this time in the movie. Throws Failure where it cannot be read.
    RecordedFrames(const std::filesystem::path& movie, int camera, std::int64_t since_start_ms);

    /// Null at the end. `time_ms` is UTC, `arrival_ms` the time in the movie. Throws Failure at damage.
    std::shared_ptr<Frame> next();

private:
    struct FreeFilter {
        void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
    };

    bool read();
    MotionZones zones_at(std::int64_t time_ms);

    MovieFile movie_;
    const int camera_;
    const bool jpeg_;
    LibavPointer<AVPacket> packet_;
    std::unique_ptr<AVBSFContext, FreeFilter> filter_;  // H.264: to a byte stream with parameter sets
    std::optional<MotionFile> motion_;
    std::size_t next_motion_ = 0;
};

}  // namespace plendix
