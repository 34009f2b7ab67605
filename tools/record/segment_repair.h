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
/// without an error. Goes from size to size and reads only the last pictures. The movie must not be open for
/// writing. Throws Failure.
Repair repair_segment(const std::filesystem::path& stem);

struct RepairedSegment {
    std::filesystem::path stem;  // relative
    Repair repair = Repair::none;
    std::string error;  // one line: it could not be repaired
};

/// The same for the segments that each camera of a folder can have left open: the one that was noted, and
/// those that were changed last in the days that were changed last. Tells of those that were not whole. The
/// folder must be locked.
std::vector<RepairedSegment> repair_newest_segments(const std::filesystem::path& folder);

struct Playable {
    std::uint64_t bytes = 0;  // up to the end of the last whole cluster; 0: there is none
    bool closed = false;      // by its writer
};
/// What of a movie can be played, also while it is being written. Throws Failure.
Playable playable_part(const std::filesystem::path& movie);

}  // namespace plendix
