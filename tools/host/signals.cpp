#include "host/signals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "usage.h"

namespace plendix {
namespace {

std::atomic<int> requests{0};
std::atomic<bool> reload_requested{false};
std::atomic<bool> hang_up_reloads{false};
std::atomic<bool> again_ends{false};
std::atomic<int> wake_descriptor{-1};  // an eventfd, never closed: a handler may be late
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "set in a signal handler");

void set_action(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void hang_up() {
    if (hang_up_reloads) {
        reload_requested = true;
        return;
    }
    int none = 0;  // shell and terminal may both say it
    requests.compare_exchange_strong(none, 1);
}

void end_by_next() {
    for (const int signal : {SIGINT, SIGTERM})
        set_action(signal, SIG_DFL);
}

void stop() {
    ++requests;
    if (again_ends) end_by_next();
}

void on_signal(int signal) {
    const int error_before = errno;
    signal == SIGHUP ? hang_up() : stop();
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto ignored = write(wake_descriptor, &one, sizeof one);
    errno = error_before;
}

}  // namespace

void ignore_broken_pipes() {
    set_action(SIGPIPE, SIG_IGN);
}

StopSignals::StopSignals(Again again, HangUp hang_up) {
    if (wake_descriptor < 0) wake_descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_descriptor < 0) throw Failure("cannot wait for signals: " + error_text(errno));
    requests = 0;
    reload_requested = false;
    again_ends = again == Again::ends_process;
    hang_up_reloads = hang_up == HangUp::reloads;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        handle(signal);
}

StopSignals::~StopSignals() {
    for (const Before& before : before_)
        sigaction(before.signal, &before.action, nullptr);
}

/// A terminal's end that was to be ignored from the start, as nohup wants it, stays ignored.
void StopSignals::handle(int signal) {
    Before before{signal, {}};
    sigaction(signal, nullptr, &before.action);
    if (signal == SIGHUP && !hang_up_reloads && before.action.sa_handler == SIG_IGN) return;
    before_.push_back(before);
    set_action(signal, on_signal);
}

int StopSignals::count() const {
    return requests;
}

void StopSignals::release() {
    end_by_next();
}

bool StopSignals::take_reload() {
    return reload_requested.exchange(false);
}

void StopSignals::wait(std::chrono::milliseconds longest) const {
    pollfd waiting{wake_descriptor, POLLIN, 0};
    const auto limit = std::clamp<std::int64_t>(longest.count(), 0, 60'000);
    poll(&waiting, 1, static_cast<int>(limit));
    std::uint64_t count = 0;
    [[maybe_unused]] const auto ignored = read(wake_descriptor, &count, sizeof count);
}

}  // namespace plendix
