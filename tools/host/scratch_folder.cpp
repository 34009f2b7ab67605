#include "host/scratch_folder.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "host/write_failure.h"
#include "usage.h"

namespace plendix {

namespace fs = std::filesystem;

namespace {

constexpr const char* name_in_ours = ".scratch-XXXXXX";
constexpr std::size_t fixed_part = 9;

fs::path system_folder() {
    std::error_code error;
    fs::path folder = fs::temp_directory_path(error);
    if (error) throw Failure("TMPDIR is no folder: " + error.message());
    return folder;
}

Descriptor open_folder(const fs::path& path) {
    return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

void remove_if_left(const fs::path& path) {
    if (path.filename().string().compare(0, fixed_part, name_in_ours, fixed_part) != 0) return;
    const Descriptor folder = open_folder(path);
    if (!folder || flock(folder.get(), LOCK_EX | LOCK_NB) != 0) return;
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

}  // namespace

ScratchFolder::ScratchFolder() : ScratchFolder(system_folder(), "plendix-XXXXXX") {}

ScratchFolder::ScratchFolder(const fs::path& parent) : ScratchFolder(parent, name_in_ours) {}

ScratchFolder::ScratchFolder(const fs::path& parent, const char* name) {
    do {  // until nobody has tidied it away before it was locked
        std::string path = fs::absolute(parent) / name;
        if (mkdtemp(path.data()) == nullptr) throw WriteFailure(parent, errno);
        path_ = path;
        lock_ = open_folder(path_);
        if (lock_) flock(lock_.get(), LOCK_SH);
    } while (lock_ ? !leads_to(path_, lock_.get()) : !fs::exists(path_));
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void ScratchFolder::remove_left(const fs::path& parent) {
    std::error_code error;
    for (fs::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error))
        remove_if_left(entry->path());
}

}  // namespace plendix
