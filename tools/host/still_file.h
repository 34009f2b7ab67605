// An image file that is there as a whole, or not at all.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/picture_format.h"
#include "host/still_image.h"

namespace plendix {

/// By the extension: .jpg, .jpeg or .png. Throws UsageError that names the file.
StillFormat still_format_of(const std::filesystem::path& file);

/// Throws Failure where the file could not be written: no folder, no right, no file in its place.
void require_writable(const std::filesystem::path& file);

/// In place of the file that was there, once everything is on the disk. Throws WriteFailure.
void write_whole_file(const std::filesystem::path& file, const Piece& content);

/// "2026-11-23T14-00-00", UTC.
std::string moment_in_name(std::int64_t time_ms);
/// "door.jpg" with its time, UTC: "door-2026-11-23T14-00-00Z.jpg".
std::filesystem::path timed_name(const std::filesystem::path& file, std::int64_t time_ms);

}  // namespace plendix
