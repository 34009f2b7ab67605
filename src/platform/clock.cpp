#include "platform/clock.h"

#include <cerrno>
#include <ctime>

std::uint32_t timeGetTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto seconds = static_cast<std::uint64_t>(now.tv_sec);
    const auto nanoseconds = static_cast<std::uint64_t>(now.tv_nsec);
    return static_cast<std::uint32_t>(seconds * 1000 + nanoseconds / 1000000);
}

int WSAGetLastError() {
    return errno;
}
