#include "record/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <array>
#include <cerrno>
#include <string>

#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

/// "process 1234", as far as the file tells.
std::string holder(int file) {
    std::array<char, 100> text{};
    const ssize_t length = ::pread(file, text.data(), text.size() - 1, 0);
    const std::string content(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t at = content.find("process ");
    if (at == std::string::npos) return "another process";
    const std::size_t end = content.find_first_not_of("0123456789", at + 8);
    return content.substr(at, end == std::string::npos ? end : end - at);
}

}  // namespace

FolderLock::FolderLock(const fs::path& folder) : path_(folder / folder_mark) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Failure("cannot make '" + folder.string() + "': " + error.message());
    const fs::path& file = path_;
    file_.reset(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
    if (!file_) throw Failure("cannot open '" + file.string() + "': " + error_text(errno));
    if (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw Failure("cannot lock '" + file.string() + "': " + error_text(errno));
        throw Failure("'" + folder.string() + "' is being recorded into by " + holder(file_.get()) +
                      ": end that, or name another folder with --output");
    }
    const std::string text = "Plendix recording, process " + std::to_string(::getpid()) + "\n";
    // The text is for the message above only: a full disk does not keep anybody from recording.
    if (::ftruncate(file_.get(), 0) == 0 && ::pwrite(file_.get(), text.data(), text.size(), 0) < 0) return;
}

bool FolderLock::in_place() const {
    return leads_to(path_, file_.get());
}

}  // namespace plendix
