// --ring: the last minutes of a capture. They lie in segment files in a folder beside the output, each
// a capture of its own, because a camera brings up to 10 MB a second: ten minutes of a few are more than
// a machine's memory, and files outlive a process that is killed.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "field/capture_output.h"

namespace plendix {

/// "field.pcapng" has its segments in "field.pcapng.ring".
std::filesystem::path ring_folder(const std::filesystem::path& file);

/// One thread.
class CaptureRing : public CaptureOutput {
public:
    struct Bounds {
        std::chrono::milliseconds time{};
        std::uint64_t bytes = 0;
    };

    /// Throws Failure, also when the file or the folder is there: what an earlier capture kept stays.
    CaptureRing(std::filesystem::path file, CaptureDescription description, const Bounds& bounds);
    /// Ended before `finish`, it leaves the segments where they are.
    ~CaptureRing() override;

    void write(const CapturedPacket& packet, Time now) override;
    void flush(Time now) override;
    /// Joins the segments, each of which goes when it is copied, and gives the file its name.
    void finish(const CaptureCounts& counts) override;
    Kept kept() const override;
    std::filesystem::path place() const override { return folder_; }

private:
    struct Segment {
        std::filesystem::path file;
        Time begin, end;
        std::uint64_t packets = 0, bytes = 0;
        std::int64_t first_ns = 0;
    };
    void begin_segment(std::int64_t first_ns, Time now);
    void end_segment();
    void remove_old(Time now);
    std::uint64_t bytes() const;
    void copy_segments(CaptureWriter& to);

    const std::filesystem::path file_, folder_;
    const CaptureDescription description_;
    const Bounds bounds_;
    std::deque<Segment> segments_;  // the last is being written while there is a writer
    std::unique_ptr<CaptureWriter> writer_;
    std::uint64_t made_ = 0;
    std::int64_t last_ns_ = 0;
    bool short_of_room_ = false;
};

}  // namespace plendix
