#include "record/event_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

#include "host/event_json.h"
#include "host/write_failure.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t most_waiting_bytes = 1U << 20U;
constexpr std::string_view line_begin = "{\"time\":\"";
constexpr std::size_t day_characters = 10;  // "2026-11-23"

std::string day_of(std::int64_t time_ms) {
    return utc_text(time_ms).substr(0, day_characters);
}

/// Adds all of the line, or nothing.
bool append(int descriptor, const std::string& line) {
    struct stat before {};
    if (fstat(descriptor, &before) != 0) return false;
    const ssize_t written = ::write(descriptor, line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) return true;
    if (written > 0 && ftruncate(descriptor, before.st_size) != 0) return false;  // cut when opened anew
    return false;
}

}  // namespace

EventFile::EventFile(fs::path folder) : folder_(std::move(folder)) {}

EventFile::~EventFile() {
    drain();
}

void EventFile::write(const Event& event) {
    add(json_line(event) + '\n');
    drain();
}

void EventFile::add(const std::string& line) {
    if (waiting_bytes_ + line.size() > most_waiting_bytes) {
        ++lost_;
        return;
    }
    waiting_bytes_ += line.size();
    waiting_.push_back(line);
}

void EventFile::check(std::int64_t now_ms) {
    if (file_ && !leads_to(folder_ / name(), file_.get())) file_.reset();
    const std::string day = day_of(now_ms);
    if (day != day_) begin_day(day);
    if (!file_) open();
    drain();
    if (lost_ == 0 || !waiting_.empty()) return;
    Event event{now_ms, 0, EventKind::storage};
    event.values["text"] =
        std::to_string(std::exchange(lost_, 0)) + " events lost: the disk did not take them";
    write(event);
}

std::string EventFile::refusal() const {
    return waiting_.empty() ? "" : WriteFailure(folder_ / name(), error_).what();
}

void EventFile::follow_clock(std::int64_t now_ms) {
    if (file_) day_ = day_of(now_ms);
}

void EventFile::open() {
    file_.reset(::open((folder_ / name()).c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (!file_) error_ = errno;
    struct stat found {};
    if (!file_ || fstat(file_.get(), &found) != 0) return;
    // A writer that was killed may have left half a line.
    off_t end = found.st_size;
    char last = 0;
    while (end > 0 && pread(file_.get(), &last, 1, end - 1) == 1 && last != '\n')
        --end;
    if (end == found.st_size) return;
    std::array<char, line_begin.size()> begin{};
    const ssize_t length = pread(file_.get(), begin.data(), begin.size(), end);
    const bool ours = length > 0 && line_begin.compare(0, static_cast<std::size_t>(length), begin.data(),
                                                       static_cast<std::size_t>(length)) == 0;
    const bool whole_lines = ours ? ftruncate(file_.get(), end) == 0 : append(file_.get(), "\n");
    if (!whole_lines) file_.reset();
}

/// A file that another process left is of the day on which it was written last. What there already is
/// of the new day stays that day's first part.
void EventFile::begin_day(const std::string& day) {
    const fs::path file = folder_ / name();
    struct stat last {};
    if (stat(file.c_str(), &last) != 0) last.st_mtime = 0;
    const std::string last_day = file_ ? day_ : day_of(std::int64_t{last.st_mtime} * 1000);
    day_ = day;
    if (last.st_mtime == 0 || last_day == day) return;
    file_.reset();
    const fs::path kept = folder_ / ("events-" + last_day + ".jsonl");
    // Where there is one of that day already, for the clock was set back, it goes on in the same file.
    renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, kept.c_str(), RENAME_NOREPLACE);
}

void EventFile::drain() {
    while (file_ && !waiting_.empty()) {
        errno = 0;
        if (!append(file_.get(), waiting_.front())) {
            error_ = errno == 0 ? ENOSPC : errno;  // a part of it found room
            return file_.reset();                  // until `check` opens it anew
        }
        waiting_bytes_ -= waiting_.front().size();
        waiting_.pop_front();
    }
}

}  // namespace plendix
