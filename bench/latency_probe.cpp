// Stands in front of the C library's recvfrom and select, so that the plug-in itself stays as it is.
// The kernel says when a datagram arrived; the last one before a frame is the frame's last block.
#include "latency_probe.h"

#include <dlfcn.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <ctime>
#include <mutex>
#include <vector>

namespace {

constexpr std::size_t kept = 200000;

std::mutex mutex;
std::vector<double> latencies, passes;  // microseconds; guarded by mutex
thread_local timespec arrived{}, pass_begun{};

timespec now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time;
}

double microseconds(const timespec& from, const timespec& to) {
    return static_cast<double>(to.tv_sec - from.tv_sec) * 1e6 +
           static_cast<double>(to.tv_nsec - from.tv_nsec) / 1e3;
}

void keep(std::vector<double>& values, double value) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (values.size() < kept) values.push_back(value);
}

std::string quantiles(const char* name, std::vector<double>& values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const auto at = [&](std::size_t percent) {
        return std::to_string(values[(values.size() - 1) * percent / 100]);
    };
    std::string text = ", \"" + std::string(name) + "\": [" + at(50) + ", " + at(99) + "]";
    values.clear();
    return text;
}

}  // namespace

void probe_frame() {
    if (arrived.tv_sec != 0) keep(latencies, microseconds(arrived, now(CLOCK_REALTIME)));
}

std::string probe_report() {
    const std::lock_guard<std::mutex> lock(mutex);
    return quantiles("latency", latencies) + quantiles("pass", passes);
}

extern "C" {

ssize_t recvfrom(int descriptor, void* data, size_t size, int flags, sockaddr* from, socklen_t* length) {
    static const auto real = reinterpret_cast<decltype(&recvfrom)>(dlsym(RTLD_NEXT, "recvfrom"));
    const ssize_t received = real(descriptor, data, size, flags, from, length);
    // The first call on a socket switches its time stamps on, and fails.
    if (ioctl(descriptor, SIOCGSTAMPNS, &arrived) != 0) arrived = {};
    return received;
}

// A pass goes from one select's return to the next call: what the plug-in does without waiting.
int select(int count, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* limit) {
    static const auto real = reinterpret_cast<decltype(&select)>(dlsym(RTLD_NEXT, "select"));
    if (pass_begun.tv_sec != 0) keep(passes, microseconds(pass_begun, now(CLOCK_MONOTONIC)));
    const int ready = real(count, reads, writes, excepts, limit);
    pass_begun = now(CLOCK_MONOTONIC);
    return ready;
}
}
