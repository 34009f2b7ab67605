// Finds the files of a recording in its folder, by their names alone.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "record/segment_name.h"

namespace plendix {

/// The names in a folder without "." and ".."; none when there is no such folder. Throws Failure.
std::vector<std::string> names_in(const std::filesystem::path& folder);

/// Numbers of the cameras that have a folder, and the days (20261123) that one has: ascending.
std::vector<int> recorded_cameras(const std::filesystem::path& folder);
std::vector<int> recorded_days(const std::filesystem::path& folder, int camera);

/// A regular file of a segment, found on the disk.
struct SegmentFile {
    SegmentName name;
    std::string extension;  // ".mkv"
    struct stat status {};
};

/// The files of one day, sorted by segment. What is no regular file or has another name is left out.
std::vector<SegmentFile> segment_files(const std::filesystem::path& folder, int camera, int day);

/// Segments of a camera that have a file with this extension and may overlap a span of time (UTC since
/// 1970), as far as names tell, whatever time zone they are in. Sorted by name.
std::vector<SegmentName> segments_near(const std::filesystem::path& folder, int camera, const char* extension,
                                       std::int64_t from_ms, std::int64_t to_ms);

/// Whether the text is a file name that a segment has; fills in time, copy and extension.
bool parse_segment_file(const std::string& text, SegmentFile& file);

/// Milliseconds since 1970.
std::int64_t changed_ms(const struct stat& status);

}  // namespace plendix
