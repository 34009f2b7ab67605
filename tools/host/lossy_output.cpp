#include "host/lossy_output.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace plendix {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds longest_wait{100};  // for a slow reader; none for one that has stopped

/// Below 0 where the descriptor cannot be opened anew: a file must not be, for it would begin at its
/// beginning; a socket always has room for a piece where it has any.
int opened_anew(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return -1;
    if (!S_ISFIFO(status.st_mode) && isatty(descriptor) != 1) return -1;
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// As many whole lines as a pipe takes at once.
std::string_view piece_of(std::string_view text) {
    if (text.size() <= PIPE_BUF) return text;
    const std::size_t end = text.rfind('\n', PIPE_BUF - 1);
    return text.substr(0, end == std::string_view::npos ? PIPE_BUF : end + 1);
}

}  // namespace

LossyOutput::LossyOutput(std::ostream& stream, int descriptor)
    : stream_(stream), before_(stream.rdbuf()), descriptor_(descriptor), own_(opened_anew(descriptor)) {
    stream_.flush();
    stream_.rdbuf(this);
}

LossyOutput::~LossyOutput() {
    if (dropped_bytes_ > 0) tell_of_loss();
    stream_.rdbuf(before_);
    if (own_ >= 0) close(own_);
}

LossyOutput::int_type LossyOutput::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char one = traits_type::to_char_type(character);
    print({&one, 1});
    return character;
}

std::streamsize LossyOutput::xsputn(const char* text, std::streamsize length) {
    print({text, static_cast<std::size_t>(length)});
    return length;
}

void LossyOutput::print(std::string_view text) {
    if (dropped_bytes_ > 0 && !tell_of_loss()) return drop(text);
    while (!text.empty()) {
        const std::string_view piece = piece_of(text);
        const std::size_t written = write(piece);
        text.remove_prefix(written);
        if (written < piece.size()) return drop(text);
    }
}

void LossyOutput::drop(std::string_view text) {
    dropped_bytes_ += text.size();
    dropped_lines_ += static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

/// False when there is no room for that, either.
bool LossyOutput::tell_of_loss() {
    const std::string notice = (line_begun_ ? "\n" : "") + std::string("plendix: ") +
                               std::to_string(dropped_lines_) + " lines (" + std::to_string(dropped_bytes_) +
                               " bytes) of this were dropped: nobody read them\n";
    if (write(notice) < notice.size()) return false;
    dropped_lines_ = dropped_bytes_ = 0;
    return true;
}

/// Returns how many bytes had room.
std::size_t LossyOutput::write(std::string_view text) {
    if (!has_room(dropped_bytes_ == 0 ? longest_wait : milliseconds(0))) return 0;
    const ssize_t written = ::write(own_ >= 0 ? own_ : descriptor_, text.data(), text.size());
    if (written <= 0) return 0;
    line_begun_ = text[static_cast<std::size_t>(written) - 1] != '\n';
    return static_cast<std::size_t>(written);
}

bool LossyOutput::has_room(milliseconds patience) const {
    pollfd output{descriptor_, POLLOUT, 0};
    int ready = -1;
    do {
        ready = poll(&output, 1, static_cast<int>(patience.count()));
    } while (ready < 0 && errno == EINTR);
    return ready == 1 && (output.revents & POLLOUT) != 0;
}

}  // namespace plendix
