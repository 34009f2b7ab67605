// The file of a clip that somebody downloads: it has a name only while it is being made.
#pragma once

#include <filesystem>

#include "host/descriptor.h"

namespace plendix {

/// Beside the recordings, where there is room for clips; below the system's folder for temporary files where
/// the recordings are for reading only.
class ClipFile {
public:
    explicit ClipFile(const std::filesystem::path& recordings);
    ~ClipFile();
    ClipFile(const ClipFile&) = delete;
    ClipFile& operator=(const ClipFile&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// To read it from its beginning, for as long as the descriptor lives. Throws Failure.
    Descriptor open() const;

private:
    std::filesystem::path path_;
};

/// Removes the clips of servers that ended while making them, by a power cut or kill -9. A server that still
/// runs keeps its own.
void remove_left_clips(const std::filesystem::path& recordings);

}  // namespace plendix
