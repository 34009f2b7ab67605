// One picture of a recording to look at.
#pragma once

#include <filesystem>

namespace plendix {

/// Writes the last key frame of the file beside it: camera-1.mkv gives camera-1.jpg, which is
/// the JPEG frame itself, or camera-1.png. Returns the name. Throws Failure.
std::filesystem::path write_still(const std::filesystem::path& movie);

}  // namespace plendix
