#include "record/growing_file.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

#include "host/write_failure.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

/// Writes everything at that position; returns 0 or the errno value.
int write_all(int file, std::vector<iovec>& parts, std::uint64_t position) {
    auto part = parts.begin();
    while (part != parts.end()) {
        const auto count = static_cast<int>(std::min<std::ptrdiff_t>(parts.end() - part, IOV_MAX));
        const ssize_t written = pwritev(file, &*part, count, static_cast<off_t>(position));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        if (written == 0) return ENOSPC;
        position += static_cast<std::uint64_t>(written);
        auto left = static_cast<std::size_t>(written);
        for (; part != parts.end() && left >= part->iov_len; ++part)
            left -= part->iov_len;
        if (left == 0) continue;
        part->iov_base = static_cast<std::uint8_t*>(part->iov_base) + left;
        part->iov_len -= left;
    }
    return 0;
}

}  // namespace

GrowingFile::GrowingFile(fs::path file) : path_(std::move(file)) {
    std::error_code error;
    if (path_.has_parent_path()) fs::create_directories(path_.parent_path(), error);
    if (error) throw WriteFailure(path_, error.value());
    file_.reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file_) throw WriteFailure(path_, errno);
}

void GrowingFile::append(const Pieces& pieces) {
    std::vector<iovec> parts;
    parts.reserve(pieces.size());
    std::uint64_t bytes = 0;
    for (const Piece& piece : pieces) {
        parts.push_back({const_cast<std::uint8_t*>(piece.data), piece.size});
        bytes += piece.size;
    }
    if (const int error = write_all(file_.get(), parts, size_); error != 0) {
        cut(size_);
        throw WriteFailure(path_, error);
    }
    size_ += bytes;
}

void GrowingFile::overwrite(const Bytes& beginning) {
    std::vector<iovec> parts{{const_cast<std::uint8_t*>(beginning.data()), beginning.size()}};
    if (const int error = write_all(file_.get(), parts, 0); error != 0) throw WriteFailure(path_, error);
}

void GrowingFile::cut(std::uint64_t size) {
    // Where even this fails the file ends in a torn piece, which readers and repair know.
    if (ftruncate(file_.get(), static_cast<off_t>(size)) == 0) size_ = size;
}

}  // namespace plendix
