// What a recording's folder has of a camera, for a time line and for playing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/frame.h"
#include "record/motion_search.h"

namespace plendix {

struct RecordedSegment {
    std::filesystem::path file;  // the movie
    std::int64_t begin_ms = 0;   // UTC since 1970, as is the end
    std::int64_t end_ms = 0;     // so far, while it is being recorded
    std::uint64_t bytes = 0;
    FrameCodec codec = FrameCodec::jpeg;
};

/// Any thread. It opens each movie once and remembers when it began. What a request names is a camera and
/// times: paths come from the folder alone.
class RecordingIndex {
public:
    /// An empty folder: nothing is recorded.
    explicit RecordingIndex(std::filesystem::path folder) : folder_(std::move(folder)) {}

    const std::filesystem::path& folder() const { return folder_; }
    /// Numbers of the cameras that have something there, ascending.
    std::vector<int> cameras() const;
    bool has(int camera) const;
    /// The first of them, in order of time; movies that cannot be read are left out.
    std::vector<RecordedSegment> segments(int camera, std::int64_t from_ms, std::int64_t to_ms,
                                          std::size_t most = SIZE_MAX) const;
    /// Spans with motion in one of these zones.
    std::vector<MotionSpan> motion(int camera, std::int64_t from_ms, std::int64_t to_ms,
                                   const MotionZones& zones) const;

private:
    struct Known {
        std::int64_t begin_ms;
        FrameCodec codec;
    };

    Known know(const std::filesystem::path& file) const;

    const std::filesystem::path folder_;
    mutable std::mutex mutex_;
    mutable std::map<std::string, Known> known_;  // guarded by mutex_
};

}  // namespace plendix
