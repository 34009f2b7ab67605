#include "host/process_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include "usage.h"

namespace plendix {
namespace {

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

void handle_with(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

/// The next signal of either kind ends the process, as it would without us.
void request_stop(int) {
    stop_requested = true;
    handle_with(SIG_DFL);
}

}  // namespace

WorkingDirectory::WorkingDirectory(const std::filesystem::path& folder)
    : before_(std::filesystem::current_path()) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error) std::filesystem::current_path(folder, error);
    if (error) throw Failure("cannot use the folder '" + folder.string() + "': " + error.message());
}

WorkingDirectory::~WorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
}

OutputToFile::OutputToFile(const std::filesystem::path& file) : before_(-1) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) throw Failure("cannot write '" + file.string() + "': " + error_text(errno));
    std::fflush(stdout);
    before_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(descriptor, STDOUT_FILENO);
    ::close(descriptor);
}

OutputToFile::~OutputToFile() {
    std::fflush(stdout);
    if (before_ < 0) return;  // there was no standard output
    dup2(before_, STDOUT_FILENO);
    ::close(before_);
}

StopSignals::StopSignals() {
    stop_requested = false;
    handle_with(request_stop);
}

StopSignals::~StopSignals() {
    handle_with(SIG_DFL);
}

bool StopSignals::requested() const {
    return stop_requested;
}

}  // namespace plendix
