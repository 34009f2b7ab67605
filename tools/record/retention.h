// Which segments are kept: the oldest go when they are too old or too many.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/clocks.h"
#include "record/segment_name.h"

namespace plendix {

struct RetentionLimits {
    std::chrono::milliseconds keep{0};  // after the end of a segment; 0: without limit
    std::uint64_t keep_bytes = 0;       // of all files of the segments; 0: without limit
    bool per_camera = false;            // keep_bytes counts for each camera, not for all together

    bool any() const { return keep.count() > 0 || keep_bytes > 0; }
};

struct Removed {
    std::size_t segments = 0;
    std::uint64_t bytes = 0;
    std::string error;   // one line; the same trouble is told once
    bool enough = true;  // free_space only: as much is available as was asked for
};

/// Knows the closed segments of one folder, ordered by the time they ended, which is that of the
/// last change of the movie. Foreign files are never touched, nor are open segments. Stems are
/// relative to the folder. One thread.
class Retention {
public:
    using Stems = std::vector<std::filesystem::path>;

    /// Reads the folder: all segments in it count as closed. Throws Failure when it cannot be read.
    /// `clocks`, when given, are those by which the ages of what is there count from now on.
    Retention(std::filesystem::path folder, RetentionLimits limits,
              const std::optional<ClockReading>& clocks = std::nullopt);

    /// A segment has been closed, by the monotonic clock just now.
    void added(const std::filesystem::path& stem, std::int64_t monotonic_ms);
    /// Removes what the limits do not allow, the oldest first, with the folders of days that became
    /// empty. Without anything to remove it costs microseconds; the sizes of open segments are looked up
    /// anew when others are open, and every five seconds. Does not throw.
    Removed sweep(std::int64_t now_ms, const Stems& open);
    /// Removes the oldest until the file system has so many bytes available: only with a limit set.
    Removed free_space(std::uint64_t wanted, const Stems& open);
    /// The wall clock was set: everything gets the end that it has by the right one; on the disk, where a
    /// week of segments takes its time, little by little with each `sweep`. What ended in the future by the
    /// clocks of the beginning keeps its end.
    void follow_clock(std::int64_t now_ms, std::int64_t monotonic_ms);

    std::size_t segments() const;
    std::uint64_t bytes() const;
    std::int64_t newest_ms() const;  // end of the newest segment; 0: there is none

private:
    struct Segment {
        std::int64_t end_ms;
        std::uint64_t bytes;
        SegmentName name;
        std::optional<std::int64_t> monotonic_ms;  // of the end, where it is known
        bool operator<(const Segment& other) const {
            return std::tie(end_ms, name) < std::tie(other.end_ms, other.name);
        }
    };
    struct Camera {
        std::deque<Segment> segments{};  // ascending
        std::uint64_t bytes = 0;
    };
    using Names = std::vector<SegmentName>;  // sorted
    struct Open {
        Stems stems{};
        Names names{};
        std::map<int, std::uint64_t> bytes{};  // by camera
        std::uint64_t all_bytes = 0;
        std::chrono::steady_clock::time_point measured{};
    };

    void look_at_open(const Stems& stems);
    void scan();
    void insert(const Segment& segment);
    Camera* oldest();
    void remove_oldest(Camera& camera, Removed& removed);
    void remove_aged(std::int64_t now_ms, Removed& removed);
    void remove_surplus(Removed& removed);
    void remove_event_files(std::int64_t now_ms, Removed& removed);
    bool goes_on() const;
    bool reachable(Removed& removed);
    void retry_failed();
    void move_times();
    void tell(int error, const std::filesystem::path& path, Removed& removed);

    std::filesystem::path folder_;
    RetentionLimits limits_;
    std::optional<ClockReading> clocks_;
    bool marked_;  // the folder had its mark of a recording when it was read
    std::map<int, Camera> cameras_;
    Open open_;
    std::vector<Segment> failed_;  // could not be removed: left alone until retry_
    std::size_t failures_ = 0;     // in this call
    std::deque<std::pair<SegmentName, std::chrono::milliseconds>> moves_;  // of times on the disk
    std::chrono::steady_clock::time_point retry_{};
    std::chrono::steady_clock::time_point next_event_files_{};
    std::set<int> told_;  // errors, until the removal works again
};

}  // namespace plendix
