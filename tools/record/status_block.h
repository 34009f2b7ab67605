// How the recorder does at a moment, in a few lines: what is wrong first. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "record/rate_meter.h"
#include "record/trouble_watch.h"

namespace plendix {

/// What the recording itself knows.
struct RecorderNumbers {
    std::uint64_t written = 0;      // bytes, since it began
    std::uint64_t lost_frames = 0;  // the disk was too slow for them
    std::string paused;             // why nothing is written; empty: it is
    std::optional<std::uint64_t> free_bytes;
    /// That are written before the oldest recordings go; nothing: none ever go.
    std::optional<std::uint64_t> room_bytes;
};

struct Status {
    using Time = CameraState::Time;

    std::vector<Trouble> troubles;
    std::size_t live = 0;
    std::size_t wanted = 0;  // cameras that are not switched off
    std::set<int> moving;    // cameras with motion
    Rates rates;
    RecorderNumbers numbers;
    Time began{};
    Time now{};
};

/// For a terminal: lines of at most `columns`, at most `most` of them, but never less than two.
std::vector<std::string> status_block(const Status& status, std::size_t columns, std::size_t most);

/// The same in one line, for a log.
std::string status_line(const Status& status);

}  // namespace plendix
