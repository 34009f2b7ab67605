// What is done with all files of a segment at once. Stems are paths without the extension.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace plendix {

struct SegmentSize {
    std::uint64_t bytes = 0;  // of all files
    std::int64_t end_ms = 0;  // last change of the movie, or without one of the other files; 0: no file
};
SegmentSize measure_segment(const std::filesystem::path& stem);

/// Removes the files, and the folder when it is empty then. 0 or an errno value; files that somebody
/// else removed count as done.
int remove_segment(const std::filesystem::path& stem);

/// Moves the times of last change.
void move_segment_times(const std::filesystem::path& stem, std::chrono::milliseconds step);

}  // namespace plendix
