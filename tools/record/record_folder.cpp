#include "record/record_folder.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

#include "host/write_failure.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t most_reserve_bytes = 256U << 20U;

/// The device of the path, or of what there is of it.
dev_t device_of(fs::path path) {
    struct stat found {};
    while (stat(path.c_str(), &found) != 0 && path.has_relative_path())
        path = path.parent_path();
    return found.st_dev;
}

using DiskSizes = struct statvfs;

std::optional<std::uint64_t> bytes_of(const fs::path& folder, fsblkcnt_t DiskSizes::*blocks) {
    DiskSizes disk{};
    if (statvfs(folder.c_str(), &disk) != 0) return std::nullopt;
    return std::uint64_t{disk.*blocks} * disk.f_frsize;
}

}  // namespace

RecordFolder::RecordFolder(const fs::path& root, TimeNames names) : names_(names) {
    root_ = fs::absolute(root).lexically_normal();
    lock_.emplace(root_);
    device_ = device_of(root_);
}

std::string RecordFolder::missing() {
    if (lock_ && lock_->in_place()) return {};
    lock_.reset();
    const std::string name = "'" + root_.string() + "'";
    std::error_code ignored;
    const bool marked = fs::exists(root_ / folder_mark, ignored);
    if (!marked && device_of(root_) != device_)
        return "the disk of " + name + " is gone: mount it again; 'touch " + (root_ / folder_mark).string() +
               "' makes a new one known";
    return take_again();
}

std::string RecordFolder::take_again() {
    try {
        lock_.emplace(root_);
        ++generation_;
        return {};
    } catch (const Failure& failure) {
        return failure.what();
    }
}

fs::path RecordFolder::free_stem(int camera, std::int64_t time_ms) const {
    const fs::path stem = segment_stem(camera, time_ms, names_);
    try {
        return plendix::free_stem(root_, stem);
    } catch (const Failure&) {
        throw WriteFailure(root_ / stem, EEXIST);
    }
}

std::optional<std::uint64_t> RecordFolder::free_bytes() const {
    return bytes_of(root_, &DiskSizes::f_bavail);
}

std::uint64_t RecordFolder::reserve_bytes() const {
    return std::min(most_reserve_bytes, bytes_of(root_, &DiskSizes::f_blocks).value_or(0) / 20);
}

bool RecordFolder::has_room() const {
    return free_bytes().value_or(0) >= reserve_bytes() / 4;
}

}  // namespace plendix
