#include <fcntl.h>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <vector>

#include "fuzz.h"
#include "platform/clock.h"

std::uint32_t fake_now = 1;
unsigned int fake_sends = 0;
std::vector<char> fake_datagram;

// The driver's own definitions lie in an archive: these are found first.
std::uint32_t timeGetTime() {
    return fake_now;
}
int WSAGetLastError() {
    return errno;
}

extern "C" {

int socket(int, int, int) noexcept {
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

ssize_t sendto(int, const void*, size_t length, int, const sockaddr*, socklen_t) {
    ++fake_sends;
    return static_cast<ssize_t>(length);
}

ssize_t recvfrom(int, void* buffer, size_t size, int, sockaddr*, socklen_t*) {
    const size_t length = std::min(size, fake_datagram.size());
    std::copy_n(fake_datagram.begin(), length, static_cast<char*>(buffer));
    return static_cast<ssize_t>(length);
}

int gethostbyname_r(const char*, hostent*, char*, size_t, hostent** result, int*) {
    *result = nullptr;
    return errno = ENOENT;
}

// Nothing waits: a run's time goes into the driver.
int select(int, fd_set*, fd_set*, fd_set*, timeval*) {
    return 0;
}
int nanosleep(const timespec*, timespec*) {
    return 0;
}
int fsync(int) {
    return 0;
}

}  // extern "C"
