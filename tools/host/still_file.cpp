#include "host/still_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <string>
#include <system_error>

#include "host/descriptor.h"
#include "host/event_json.h"
#include "host/write_failure.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

/// Beside the file, hidden, and no other process's.
fs::path part_of(const fs::path& file) {
    const std::string name = '.' + file.filename().string() + '.' + std::to_string(getpid()) + ".part";
    return file.parent_path() / name;
}

Descriptor open_new(const fs::path& part) {
    return Descriptor(::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666));
}

/// Returns 0 or the errno value.
int write_all(int descriptor, const Piece& content) {
    for (std::size_t written = 0; written < content.size;) {
        const ssize_t result = ::write(descriptor, content.data + written, content.size - written);
        if (result < 0 && errno == EINTR) continue;
        if (result <= 0) return result < 0 ? errno : ENOSPC;
        written += static_cast<std::size_t>(result);
    }
    return fsync(descriptor) == 0 ? 0 : errno;
}

}  // namespace

StillFormat still_format_of(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    if (extension == ".jpg" || extension == ".jpeg") return StillFormat::jpeg;
    if (extension == ".png") return StillFormat::png;
    throw UsageError("'" + file.string() + "' is neither a .jpg nor a .png file");
}

void require_writable(const fs::path& file) {
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw Failure("cannot write '" + file.string() + "': it is there already, and no file");
    const fs::path part = part_of(file);
    if (!open_new(part)) throw WriteFailure(file, errno);
    ::unlink(part.c_str());
}

void write_whole_file(const fs::path& file, const Piece& content) {
    const fs::path part = part_of(file);
    const Descriptor descriptor = open_new(part);
    if (!descriptor) throw WriteFailure(file, errno);
    int failure = write_all(descriptor.get(), content);
    if (failure == 0 && ::rename(part.c_str(), file.c_str()) != 0) failure = errno;
    if (failure == 0) return;
    ::unlink(part.c_str());
    throw WriteFailure(file, failure);
}

std::string moment_in_name(std::int64_t time_ms) {
    std::string moment = utc_text(time_ms).substr(0, 19);
    std::replace(moment.begin(), moment.end(), ':', '-');  // which some systems have no room for in a name
    return moment;
}

fs::path timed_name(const fs::path& file, std::int64_t time_ms) {
    fs::path timed = file;
    return timed.replace_filename(file.stem().string() + '-' + moment_in_name(time_ms) + 'Z' +
                                  file.extension().string());
}

}  // namespace plendix
