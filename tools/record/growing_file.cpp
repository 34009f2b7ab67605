#include "record/growing_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "record/write_failure.h"

namespace plendix {

namespace fs = std::filesystem;

GrowingFile::GrowingFile(fs::path file) : path_(std::move(file)) {
    std::error_code error;
    if (path_.has_parent_path()) fs::create_directories(path_.parent_path(), error);
    if (error) throw WriteFailure(path_, error.value());
    file_.reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file_) throw WriteFailure(path_, errno);
}

int GrowingFile::write(const std::uint8_t* data, std::size_t size) {
    if (holding_) {
        held_.push_back({position_, std::vector<std::uint8_t>(data, data + size)});
    } else if (const int error = write_out(data, size, position_); error != 0) {
        return error;
    }
    position_ += static_cast<std::int64_t>(size);
    size_ = std::max(size_, position_);
    return 0;
}

int GrowingFile::write_out(const std::uint8_t* data, std::size_t size, std::int64_t position) {
    while (size > 0) {
        const ssize_t written = pwrite(file_.get(), data, size, position);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        if (written == 0) return ENOSPC;
        data += written;
        size -= static_cast<std::size_t>(written);
        position += written;
    }
    return 0;
}

void GrowingFile::undo() {
    // Where even this fails the file ends in a torn piece, which readers and repair know.
    if (ftruncate(file_.get(), whole_) == 0) size_ = whole_;
}

int GrowingFile::apply() {
    holding_ = false;
    std::stable_partition(held_.begin(), held_.end(),
                          [this](const Piece& piece) { return piece.position >= whole_; });
    for (const Piece& piece : held_) {
        const int error = write_out(piece.bytes.data(), piece.bytes.size(), piece.position);
        if (error != 0) return error;
    }
    held_.clear();
    keep();
    return 0;
}

}  // namespace plendix
