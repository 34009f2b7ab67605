#include "host/service_notice.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace plendix {
namespace {

using std::chrono::microseconds;

constexpr timeval longest_wait{1, 0};  // of a message that must arrive, for a manager that is busy

std::string environment(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes it
    return value == nullptr ? "" : value;
}

/// 0 when it is no number.
std::int64_t number(const std::string& text) {
    std::int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

/// A path, or "@" and an abstract name; others than these are left alone.
std::string socket_address() {
    std::string address = environment("NOTIFY_SOCKET");
    const bool abstract = !address.empty() && address[0] == '@';
    if (abstract) address[0] = '\0';
    const bool usable = abstract || (!address.empty() && address[0] == '/');
    return usable && address.size() < sizeof sockaddr_un{}.sun_path ? address : "";
}

microseconds watchdog_time() {
    const std::string process = environment("WATCHDOG_PID");
    if (!process.empty() && number(process) != getpid()) return microseconds(0);
    return microseconds(std::max<std::int64_t>(0, number(environment("WATCHDOG_USEC"))));
}

/// Each line is a statement of its own.
std::string one_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

ServiceNotice::ServiceNotice() : address_(socket_address()) {
    if (address_.empty()) return;
    watchdog_ = watchdog_time();
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &longest_wait, sizeof longest_wait);
}

ServiceNotice::~ServiceNotice() {
    if (socket_ >= 0) close(socket_);
}

void ServiceNotice::ready(const std::string& status) {
    status_ = status;
    send("READY=1\nSTATUS=" + one_line(status), 0);
}

void ServiceNotice::status(const std::string& text) {
    if (text == status_) return;
    status_ = text;
    send("STATUS=" + one_line(text), MSG_DONTWAIT);
}

void ServiceNotice::reloading() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto time = std::chrono::duration_cast<microseconds>(now).count();
    send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(time), 0);
}

void ServiceNotice::stopping() {
    send("STOPPING=1", 0);
}

void ServiceNotice::alive_if(bool driver_passed, Time now) {
    passed_ = passed_ || driver_passed;
    if (watchdog_.count() == 0 || !passed_ || now - fed_ < watchdog_ / 3) return;
    if (!send("WATCHDOG=1", MSG_DONTWAIT)) return;  // the next turn tries again
    passed_ = false;
    fed_ = now;
}

bool ServiceNotice::send(const std::string& text, int flags) const {
    if (socket_ < 0) return false;
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path, address_.data(), address_.size());
    const std::size_t length = offsetof(sockaddr_un, sun_path) + address_.size();
    return sendto(socket_, text.data(), text.size(), flags | MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&to), static_cast<socklen_t>(length)) >= 0;
}

}  // namespace plendix
