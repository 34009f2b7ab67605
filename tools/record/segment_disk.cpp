#include "record/segment_disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "record/segment_files.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

std::string with_extension(const fs::path& stem, const char* extension) {
    return stem.string() + extension;
}

bool look(const std::string& file, struct stat& status) {
    return ::lstat(file.c_str(), &status) == 0;
}

}  // namespace

SegmentSize measure_segment(const fs::path& stem) {
    SegmentSize size;
    bool movie = false;
    for (const char* extension : segment_extensions) {  // the movie first
        struct stat status {};
        if (!look(with_extension(stem, extension), status)) continue;
        size.bytes += static_cast<std::uint64_t>(status.st_size);
        if (!movie) size.end_ms = std::max(size.end_ms, changed_ms(status));
        movie = movie || std::string_view(extension) == ".mkv";
    }
    return size;
}

int remove_segment(const fs::path& stem) {
    for (const char* extension : segment_extensions)
        if (::unlink(with_extension(stem, extension).c_str()) != 0 && errno != ENOENT) return errno;
    ::rmdir(stem.parent_path().c_str());  // refused while there is anything in it
    return 0;
}

void move_segment_times(const fs::path& stem, std::chrono::milliseconds step) {
    for (const char* extension : segment_extensions) {
        const std::string file = with_extension(stem, extension);
        struct stat status {};
        if (!look(file, status)) continue;
        const std::int64_t moved = std::max<std::int64_t>(changed_ms(status) + step.count(), 0);
        const timespec times[2] = {{0, UTIME_OMIT},
                                   {static_cast<std::time_t>(moved / 1000), moved % 1000 * 1'000'000}};
        ::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
}

}  // namespace plendix
