#include "host/scratch_folder.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "usage.h"

namespace plendix {

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder() {
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    if (error) throw Failure("TMPDIR is no folder: " + error.message());
    std::string name = fs::absolute(parent) / "plendix-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw Failure("cannot make a folder in '" + parent.string() + "': " + error_text(errno));
    path_ = name;
    lock_.reset(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_) flock(lock_.get(), LOCK_SH);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

}  // namespace plendix
