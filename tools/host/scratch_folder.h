// A folder for what nobody wants afterwards.
#pragma once

#include <filesystem>

#include "host/descriptor.h"

namespace plendix {

/// Removed with all that it holds; nobody else can read it. While it lives it is locked, which keeps those
/// away who tidy up there.
class ScratchFolder {
public:
    /// Below the system's folder for temporary files. Throws Failure, which is a WriteFailure where there is
    /// no room.
    ScratchFolder();
    /// Below a folder of ours, as ".scratch-XXXXXX". Throws Failure.
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Removes those in a folder of ours that nobody holds any more, after a power cut or kill -9.
    static void remove_left(const std::filesystem::path& parent);

private:
    ScratchFolder(const std::filesystem::path& parent, const char* name);

    std::filesystem::path path_;  // absolute
    Descriptor lock_;
};

}  // namespace plendix
