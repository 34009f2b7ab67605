#include "host/process_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "usage.h"

namespace plendix {

namespace fs = std::filesystem;

namespace {

int open_log(const fs::path& file) {
    return open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

bool same_file(const fs::path& file, const struct stat& other) {
    struct stat found {};
    return stat(file.c_str(), &found) == 0 && found.st_dev == other.st_dev && found.st_ino == other.st_ino;
}

/// Whoever prints meanwhile prints into the one or the other.
void replace_output(int descriptor) {
    dup2(descriptor, STDOUT_FILENO);
    close(descriptor);
}

}  // namespace

void keep_standard_descriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0) continue;
        // The lowest free number is this one. A folder will do where there is no such device.
        if (open("/dev/null", O_RDWR) < 0) static_cast<void>(open("/", O_RDONLY));
    }
}

WorkingDirectory::WorkingDirectory(const fs::path& folder)
    : before_(fs::current_path()), folder_(before_ / folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error) fs::current_path(folder, error);
    if (error) throw Failure("cannot use the folder '" + folder.string() + "': " + error.message());
}

void WorkingDirectory::enter() const {
    std::error_code ignored;
    fs::current_path(folder_, ignored);
}

WorkingDirectory::~WorkingDirectory() {
    std::error_code ignored;
    fs::current_path(before_, ignored);
}

OutputToFile::OutputToFile(const fs::path& file) : file_(fs::absolute(file)), before_(-1) {
    const int descriptor = open_log(file_);
    if (descriptor < 0) throw Failure("cannot write '" + file.string() + "': " + error_text(errno));
    std::fflush(stdout);
    before_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    replace_output(descriptor);
}

OutputToFile::~OutputToFile() {
    std::fflush(stdout);
    if (before_ >= 0) replace_output(before_);
}

void OutputToFile::rotate_if_large(std::uintmax_t largest) {
    std::fflush(stdout);
    struct stat now {};
    if (fstat(STDOUT_FILENO, &now) != 0) return;
    if (same_file(file_, now)) {
        if (static_cast<std::uintmax_t>(now.st_size) <= largest) return;
        fs::path older = file_;
        std::error_code ignored;  // the same file goes on
        fs::rename(file_, older += ".1", ignored);
    }
    const int next = open_log(file_);
    if (next >= 0) replace_output(next);
}

}  // namespace plendix
