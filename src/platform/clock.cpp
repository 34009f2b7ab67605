#include "platform/clock.h"

#include <cerrno>
#include <ctime>

std::uint32_t timeGetTime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec) * 1000 + static_cast<std::uint32_t>(now.tv_nsec) / 1000000;
}

int WSAGetLastError() {
    return errno;
}
