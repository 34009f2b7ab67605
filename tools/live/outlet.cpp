#include "live/outlet.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "usage.h"

namespace plendix {
namespace {

constexpr int look_ms = 100;  // at whether to go on waiting

bool is(int descriptor, mode_t type) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == type;
}

/// A pipe that is shared must not become one that refuses for all its writers: it is opened anew.
int open_pipe(int descriptor) {
    if (!is(descriptor, S_IFIFO)) return -1;
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

}  // namespace

Outlet::Outlet(int descriptor) : output_(open_pipe(descriptor)), most_bytes_(SSIZE_MAX) {
    if (output_) return;
    output_.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (!output_) throw Failure("cannot use standard output: " + error_text(errno));
    // Another user's pipe, or a socket: as much as there is room for when there is some.
    if (!is(descriptor, S_IFREG)) most_bytes_ = PIPE_BUF;
}

bool Outlet::write(const Pieces& pieces) {
    for (const Piece& piece : pieces)
        for (std::size_t written = 0; written < piece.size;)
            if (!wait_for_room() || !write_some(piece, written)) return false;
    return true;
}

bool Outlet::write_some(const Piece& piece, std::size_t& written) {
    const std::size_t bytes = std::min(piece.size - written, most_bytes_);
    const ssize_t result = ::write(output_.get(), piece.data + written, bytes);
    if (result >= 0) {
        written += static_cast<std::size_t>(result);
        return true;
    }
    if (errno == EINTR || errno == EAGAIN) return true;
    if (errno == EPIPE || errno == ECONNRESET) return false;
    throw Failure("cannot write to standard output: " + error_text(errno));
}

bool Outlet::wait_for_room() {
    pollfd waiting{output_.get(), POLLOUT, 0};
    for (;;) {
        const int ready = poll(&waiting, 1, look_ms);
        if (ready > 0 && (waiting.revents & POLLOUT) != 0) return true;
        if (ready > 0) return false;
        if (asked_ && asked_()) {
            end_within(left_);
            asked_ = nullptr;
        }
        if (Clock::now().time_since_epoch().count() >= end_) return false;
    }
}

bool Outlet::reader_gone() const {
    pollfd waiting{output_.get(), 0, 0};
    return poll(&waiting, 1, 0) > 0 && (waiting.revents & (POLLERR | POLLHUP)) != 0;
}

void Outlet::end_within(std::chrono::milliseconds time) {
    end_ = (Clock::now() + time).time_since_epoch().count();
}

void Outlet::end_when(std::function<bool()> asked, std::chrono::milliseconds time) {
    asked_ = std::move(asked);
    left_ = time;
}

}  // namespace plendix
