// The folder of a recording, which may vanish with its disk and come back.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "record/folder_lock.h"
#include "record/segment_name.h"

namespace plendix {

/// Holds the lock of its folder. The recorder's thread only, once it is made.
class RecordFolder {
public:
    /// Makes the folder. Throws Failure: it cannot be used, or another recorder writes there.
    RecordFolder(const std::filesystem::path& root, TimeNames names);

    /// Why nothing can be written to the folder now; empty when it is there. A folder that came
    /// back is locked anew. Where the disk is another than at the start (its mount point is bare,
    /// for instance), only a folder with the mark of a recording is taken.
    std::string missing();

    /// A name that no segment has: relative, without extension. Throws WriteFailure when there is none.
    std::filesystem::path free_stem(int camera, std::int64_t time_ms) const;

    /// Bytes that may still be written; nothing when the folder is not there.
    std::optional<std::uint64_t> free_bytes() const;
    /// What retention leaves free: several seconds of 255 cameras, on a small disk less.
    std::uint64_t reserve_bytes() const;
    /// Whether it is worth while to go on after the disk was full: with a part of the reserve.
    bool has_room() const;

    /// Absolute.
    const std::filesystem::path& root() const { return root_; }
    /// Another number: another folder has its place.
    unsigned generation() const { return generation_; }

private:
    std::string take_again();

    std::filesystem::path root_;
    TimeNames names_;
    std::optional<FolderLock> lock_;
    unsigned generation_ = 0;
    dev_t device_ = 0;  // at the start
};

}  // namespace plendix
