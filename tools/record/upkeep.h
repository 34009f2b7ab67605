// What happens to a recording's segments once they are closed: their age, and which of them go.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "host/clock_watch.h"
#include "record/record_folder.h"
#include "record/retention.h"

namespace plendix {

/// The recorder's thread only.
class Upkeep {
public:
    using Clock = std::chrono::steady_clock;

    /// Reads the folder. Throws Failure when it cannot be read. `began`: the clocks when the recorder began
    /// to look at it, so that a step while it does is noticed.
    Upkeep(RecordFolder& folder, const RetentionLimits& limits, const std::optional<ClockReading>& began);

    /// The stem is relative to the folder.
    void closed(const std::filesystem::path& stem);

    /// To be called before anything is closed or removed: when the wall clock was set, tells by how
    /// much, and from then on the age of what was recorded by the wrong clock is that of the right one.
    std::optional<std::int64_t> follow_clock();

    /// Removes what the limits do not allow any more, and makes room where the disk is nearly full or,
    /// `refused`, did not take a frame. Does not throw.
    Removed sweep(const Retention::Stems& open);
    Removed make_room(bool refused, const Retention::Stems& open);

    /// Bytes that can be written before the oldest segments go; nothing when none ever go.
    std::optional<std::uint64_t> room() const;
    std::uint64_t kept_bytes() const { return retention_->bytes(); }

private:
    void doubt(std::int64_t ms);
    void follow_folder();

    RecordFolder& folder_;
    const RetentionLimits limits_;
    std::optional<Retention> retention_;
    unsigned folder_generation_;
    ClockWatch clock_;
    std::int64_t doubt_ms_ = 0;  // the wall clock may be so far ahead
    Clock::time_point doubted_until_{};
};

}  // namespace plendix
