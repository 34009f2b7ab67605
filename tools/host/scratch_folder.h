// A folder for what nobody wants afterwards.
#pragma once

#include <filesystem>

#include "host/descriptor.h"

namespace plendix {

/// Made below the system's folder for temporary files, removed with all that it holds. While it lives
/// it is locked, which keeps those away who tidy up there.
class ScratchFolder {
public:
    /// Throws Failure.
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;  // absolute
    Descriptor lock_;
};

}  // namespace plendix
