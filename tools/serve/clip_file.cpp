#include "serve/clip_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>

#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

const std::string name_begins = ".clip-";  // and goes on with the number of the process

fs::path place_of_clips(const fs::path& recordings) {
    if (::access(recordings.c_str(), W_OK) == 0) return recordings;
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    return error ? recordings : temporary;
}

fs::path next_path(const fs::path& recordings) {
    static std::atomic<unsigned> number{0};
    const std::string name =
        name_begins + std::to_string(::getpid()) + '-' + std::to_string(++number) + ".mkv";
    return place_of_clips(recordings) / name;
}

/// Whether a process made it that is gone, or one that had our number before.
bool is_left(const std::string& name) {
    if (name.compare(0, name_begins.size(), name_begins) != 0) return false;
    const int process = std::atoi(name.c_str() + name_begins.size());
    if (process <= 0) return false;
    return process == ::getpid() || (::kill(process, 0) != 0 && errno == ESRCH);
}

}  // namespace

ClipFile::ClipFile(const fs::path& recordings) : path_(next_path(recordings)) {}

ClipFile::~ClipFile() {
    ::unlink(path_.c_str());
}

Descriptor ClipFile::open() const {
    Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) throw Failure("cannot read '" + path_.string() + "': " + error_text(errno));
    return file;
}

void remove_left_clips(const fs::path& recordings) {
    std::error_code error;
    for (fs::directory_iterator entry(place_of_clips(recordings), error), end; !error && entry != end;
         entry.increment(error)) {
        if (is_left(entry->path().filename().string())) ::unlink(entry->path().c_str());
    }
}

}  // namespace plendix
