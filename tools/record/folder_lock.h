// One writer per folder.
#pragma once

#include <filesystem>

#include "host/descriptor.h"

namespace plendix {

/// The file that is locked. It stays, and so marks the folder as one of our recordings.
constexpr const char* folder_mark = ".plendix";

/// Held as long as the object lives; the system ends it with the process, however that ends.
class FolderLock {
public:
    /// Makes the folder where there is none. Throws Failure when another process records into it,
    /// and names that process.
    explicit FolderLock(const std::filesystem::path& folder);

    /// False when the folder's mark is another file by now, or gone.
    bool in_place() const;

private:
    std::filesystem::path path_;
    Descriptor file_;
};

}  // namespace plendix
