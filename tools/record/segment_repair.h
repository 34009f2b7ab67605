// Makes movies whole that their writer could not close.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace plendix {

enum class Repair {
    none,     // closed, or whole up to its end
    cut,      // a torn end was taken off
    removed,  // without one whole picture; its motion file went with it
    foreign   // begins like no movie of ours: left alone
};

/// Cuts the movie of a segment that was not closed after its last whole cluster, so that it plays
/// without an error. Goes from size to size and reads no picture. The movie must not be open for
/// writing. Throws Failure.
Repair repair_segment(const std::filesystem::path& stem);

struct RepairedSegment {
    std::filesystem::path stem;  // relative
    Repair repair = Repair::none;
    std::string error;  // one line: it could not be repaired
};

/// The same for the segments that each camera of a folder can have left open: those that were changed
/// last in the days that were changed last. Tells of those that were not whole. The folder must be locked.
std::vector<RepairedSegment> repair_newest_segments(const std::filesystem::path& folder);

/// Length of the movie up to its last whole cluster, for readers while it is being written; all of
/// a movie that was closed, and 0 where there is nothing to play.
std::uint64_t playable_bytes(const std::filesystem::path& movie);

}  // namespace plendix
