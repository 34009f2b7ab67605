// The recording of one camera: its frames into segments.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/frame.h"
#include "host/picture_format.h"
#include "record/matroska_writer.h"
#include "record/motion_file.h"
#include "record/record_folder.h"
#include "record/record_totals.h"
#include "record/refusal.h"

namespace plendix {

/// A new segment begins with a key frame, when the one before is long enough, the camera changes
/// codec, size or parameter sets, the wall clock was set, or the disk takes frames again after it
/// had refused them. The recorder's thread only.
class CameraRecorder {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Segments of `length`, 0: as long as the recording goes on.
    CameraRecorder(int number, RecordFolder& folder, std::chrono::milliseconds length);

    void frame(const Frame& frame, Time now);
    /// Once in a while: ends a segment whose file is gone or whose camera has stopped sending. False
    /// when somebody took the file away: the next key frame begins another one.
    bool check(Time now);
    void close();

    int number() const { return number_; }
    const RecordTotals& totals() const { return totals_; }
    /// Of the segment written last; not usable before the first.
    const PictureFormat& format() const { return format_; }
    /// Why nothing is written; it stays until the disk has taken everything for two seconds.
    const Refusal& refusal() const { return refusal_; }
    /// So often writing failed.
    std::uint64_t failures() const { return failures_; }
    /// Tries again with the next key frame. Without this it does so every second, and where the disk takes
    /// a few pictures and refuses again less and less often, down to twice a minute.
    void retry();

    std::uint64_t open_bytes() const;
    /// Of the open segment: relative to the folder, without extension.
    std::optional<std::filesystem::path> open_stem() const;
    /// Segments closed since the last call, the same.
    std::vector<std::filesystem::path> take_closed();

private:
    void jpeg(const Frame& frame);
    void h264(const Frame& frame);
    void store(const PictureFormat& format, const Pieces& picture, const Frame& frame);
    bool fits(const PictureFormat& format, const Frame& frame) const;
    void begin(const PictureFormat& format, const Frame& frame);
    void write(const Pieces& picture, const Frame& frame);
    void fail(const Refusal& refusal, std::uint64_t recorded_before);
    void refuse(const Refusal& refusal);

    const int number_;
    RecordFolder& folder_;
    const std::chrono::milliseconds length_;
    RecordTotals totals_;
    std::optional<MatroskaWriter> movie_;
    std::optional<MotionWriter> motion_;
    std::filesystem::path stem_;
    PictureFormat format_;
    H264Frame parts_;            // kept for its memory
    std::int64_t began_ms_ = 0;  // arrival of the segment's first frame
    std::uint32_t clock_epoch_ = 0;
    Time now_{};
    Time last_frame_{};
    Refusal refusal_;
    std::uint64_t failures_ = 0;
    std::optional<Time> good_since_;  // the disk takes everything
    Time next_try_{};
    std::chrono::seconds retry_period_{1};
    std::vector<std::filesystem::path> closed_;
};

}  // namespace plendix
