// What a recording has come to: numbers for people.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace plendix {

/// What became of one camera's frames.
struct RecordTotals {
    std::uint64_t recorded = 0;    // frames in the files
    std::uint64_t unreadable = 0;  // not recorded: they do not tell what they are
    std::uint64_t unstarted = 0;   // not recorded: no key frame since the stream began or had a gap
    std::uint64_t unwritten = 0;   // not recorded: the disk did not take them
    std::uint64_t lost = 0;        // not recorded: writing was too slow
    std::uint64_t bytes = 0;       // of the segments that are closed
    std::vector<std::filesystem::path> files;  // the last segment, or all where they are remembered
};

/// All cameras together, while it goes on.
struct RecorderNumbers {
    std::uint64_t written = 0;         // bytes, since it began
    std::uint64_t recorded = 0;        // frames
    std::uint64_t lost_frames = 0;     // the disk was too slow for them
    std::uint64_t refused_frames = 0;  // the disk did not take them
    bool there = true;                 // the folder
    std::string paused;                // why nothing is written; empty: it is
    std::size_t paused_cameras = 0;
    std::optional<std::uint64_t> free_bytes;
    /// That are written before the oldest recordings go; nothing: none ever go.
    std::optional<std::uint64_t> room_bytes;
    std::uint64_t kept_bytes = 0;       // closed segments
    std::chrono::milliseconds keep{0};  // the limit of their age; 0: there is none
};

}  // namespace plendix
