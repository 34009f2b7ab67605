#include "record/motion_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "host/write_failure.h"

namespace plendix {
namespace {

constexpr std::size_t header_bytes = 16;
constexpr std::size_t record_bytes = 16;
constexpr std::uint8_t version = 1;
constexpr std::int64_t latest_ms = 253'402'300'799'999;  // the end of the year 9999
constexpr std::uint8_t magic[] = {'P', 'M', 'o', 't'};
constexpr std::uint8_t flag_enabled = 1;
constexpr std::uint8_t record_mark = 0xA5;  // a tail that the disk left as zeros is no record

void put(Bytes& bytes, std::int64_t value, int width) {
    for (int i = 0; i < width; ++i)
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
}

std::int64_t get(const std::uint8_t* bytes, int width) {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i)
        value |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
    return static_cast<std::int64_t>(value);
}

Bytes header(int camera, std::int64_t start_ms) {
    Bytes bytes(std::begin(magic), std::end(magic));
    bytes.push_back(version);
    put(bytes, camera, 1);
    put(bytes, record_bytes, 2);
    put(bytes, start_ms, 8);
    return bytes;
}

Failure failure(const char* what, const std::filesystem::path& file, int error) {
    return Failure(std::string("cannot ") + what + " '" + file.string() + "': " + error_text(error));
}

/// An open file and its length when it was opened.
struct Opened {
    explicit Opened(const std::filesystem::path& path) : file(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat status {};
        if (!file || ::fstat(file.get(), &status) != 0) throw failure("read", path, errno);
        length = static_cast<std::size_t>(status.st_size);
    }
    Descriptor file;
    std::size_t length = 0;
};

/// As many of the bytes from a position on as there are.
Bytes part_of(const Opened& opened, std::size_t from, std::size_t most, const std::filesystem::path& path) {
    Bytes bytes(std::min(most, opened.length - std::min(from, opened.length)));
    std::size_t length = 0;
    while (length < bytes.size()) {
        const ssize_t got = ::pread(opened.file.get(), bytes.data() + length, bytes.size() - length,
                                    static_cast<off_t>(from + length));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw failure("read", path, errno);
        if (got == 0) break;
        length += static_cast<std::size_t>(got);
    }
    bytes.resize(length);
    return bytes;
}

}  // namespace

MotionWriter::MotionWriter(std::filesystem::path file, int camera, std::int64_t start_ms)
    : path_(std::move(file)), camera_(camera), start_ms_(start_ms) {}

void MotionWriter::write(const MotionRecord& record) {
    if (!file_) {
        file_.reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0666));
        if (!file_) throw WriteFailure(path_, errno);
    }
    if (torn_ && ::ftruncate(file_.get(), length_) != 0) throw WriteFailure(path_, errno);
    torn_ = false;
    Bytes bytes;
    if (length_ == 0) bytes = header(camera_, start_ms_);
    put(bytes, std::max<std::int64_t>(record.since_start_ms, 0), 6);
    bytes.push_back(record.enabled ? flag_enabled : 0);
    bytes.push_back(record_mark);
    bytes.insert(bytes.end(), record.zones.begin(), record.zones.end());

    const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
    if (written == static_cast<ssize_t>(bytes.size())) {
        length_ += written;
        return;
    }
    const int error = written < 0 ? errno : ENOSPC;
    torn_ = ::ftruncate(file_.get(), length_) != 0;
    throw WriteFailure(path_, error);
}

MotionFile::MotionFile(const std::filesystem::path& file) {
    const Opened opened(file);
    bytes_ = part_of(opened, 0, opened.length, file);
    if (bytes_.empty()) return;
    read_header(file);
    const std::size_t whole = (bytes_.size() - header_bytes) / record_bytes_;
    while (count_ < whole && bytes_[header_bytes + count_ * record_bytes_ + 7] == record_mark)
        ++count_;
}

void MotionFile::read_header(const std::filesystem::path& file) {
    if (bytes_.size() < header_bytes || !std::equal(std::begin(magic), std::end(magic), bytes_.begin()))
        throw Failure("'" + file.string() + "' is no motion file");
    if (bytes_[4] != version)
        throw Failure("'" + file.string() + "' is a motion file of version " + std::to_string(bytes_[4]) +
                      ": this command reads version " + std::to_string(version));
    camera_ = bytes_[5];
    record_bytes_ = static_cast<std::size_t>(get(&bytes_[6], 2));
    start_ms_ = get(&bytes_[8], 8);
    if (record_bytes_ < record_bytes || start_ms_ < 0 || start_ms_ > latest_ms)
        throw Failure("'" + file.string() + "' is a damaged motion file: records of " +
                      std::to_string(record_bytes_) + " bytes from " + std::to_string(start_ms_) + " ms on");
}

MotionRecord MotionFile::record(std::size_t index) const {
    const std::uint8_t* at = &bytes_[header_bytes + index * record_bytes_];
    MotionRecord record;
    record.since_start_ms = get(at, 6);
    record.enabled = (at[6] & flag_enabled) != 0;
    std::copy_n(at + 8, record.zones.size(), record.zones.begin());
    return record;
}

MotionBounds motion_bounds(const std::filesystem::path& path) {
    const Opened opened(path);
    MotionFile file;
    file.bytes_ = part_of(opened, 0, header_bytes, path);
    if (file.bytes_.empty()) return {latest_ms, 0};
    file.read_header(path);
    const std::size_t whole = (opened.length - header_bytes) / file.record_bytes_;
    if (whole == 0) return {file.start_ms_, file.start_ms_};
    const Bytes last = part_of(opened, header_bytes + (whole - 1) * file.record_bytes_, record_bytes, path);
    const bool torn = last.size() < record_bytes || last[7] != record_mark;
    return {file.start_ms_, torn ? latest_ms : file.start_ms_ + get(last.data(), 6)};
}

}  // namespace plendix
