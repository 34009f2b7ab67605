// The motion of one segment: a small file beside the movie, one record for each picture with motion.
// docs/recording-files.md describes it to the byte.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/descriptor.h"
#include "host/frame.h"

namespace plendix {

struct MotionRecord {
    std::int64_t since_start_ms = 0;  // on the monotonic clock, from the segment's beginning
    bool enabled = false;             // motion in a zone that the mask lets through
    MotionZones zones{};              // before the mask
};

/// Every record has left the process when `write` returns. One thread.
class MotionWriter {
public:
    /// Creates nothing yet: a segment in which nothing moves has no motion file. `start_ms` is UTC.
    MotionWriter(std::filesystem::path file, int camera, std::int64_t start_ms);

    /// Throws Failure when the file exists already or the disk refuses. The file is then left with
    /// whole records, and the next record may be tried again.
    void write(const MotionRecord& record);

private:
    std::filesystem::path path_;
    int camera_;
    std::int64_t start_ms_;
    Descriptor file_;
    std::int64_t length_ = 0;  // bytes of header and whole records
    bool torn_ = false;        // more than those, because the disk did not let them go
};

/// When a motion file begins and ends (UTC since 1970).
struct MotionBounds {
    std::int64_t first_ms = 0;
    std::int64_t last_ms = 0;
};

/// A motion file in memory. Whatever its bytes are, reading it is safe: it ends with the last whole record.
class MotionFile {
public:
    /// Throws Failure when the file cannot be read or is no motion file. A file without a byte is one
    /// that its writer has only just created: no records.
    explicit MotionFile(const std::filesystem::path& file);

    int camera() const { return camera_; }
    std::int64_t start_ms() const { return start_ms_; }
    std::size_t size() const { return count_; }
    MotionRecord record(std::size_t index) const;

private:
    friend MotionBounds motion_bounds(const std::filesystem::path& file);

    MotionFile() = default;
    void read_header(const std::filesystem::path& file);

    Bytes bytes_;
    std::size_t count_ = 0;
    std::size_t record_bytes_ = 0;
    int camera_ = 0;
    std::int64_t start_ms_ = 0;
};

/// Without reading it all. Throws Failure as MotionFile does.
MotionBounds motion_bounds(const std::filesystem::path& file);

}  // namespace plendix
