// Which segment each camera writes, kept where a process that is killed cannot forget it.
#pragma once

#include <filesystem>
#include <vector>

namespace plendix {

/// Before the movie is made. The stem is relative. Costs three system calls; a disk that is full or broken
/// may not keep it.
void note_open_segment(const std::filesystem::path& folder, int camera, const std::filesystem::path& stem);

/// The segment that each camera began last, as far as it was noted; it may be closed, or gone.
std::vector<std::filesystem::path> noted_segments(const std::filesystem::path& folder);

}  // namespace plendix
