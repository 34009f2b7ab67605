#include "http/client_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace plendix {
namespace {

constexpr int unsent_bytes = 256 << 10;  // of a connection, in the kernel: more would only grow old there

void set(int descriptor, int level, int option, int value) {
    setsockopt(descriptor, level, option, &value, sizeof value);
}

}  // namespace

void set_up_client_socket(int descriptor) {
    set(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(descriptor, IPPROTO_TCP, TCP_KEEPCNT, 4);
    set(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, unsent_bytes);
}

bool client_is_gone(int descriptor) {
    pollfd socket{descriptor, POLLRDHUP, 0};
    return poll(&socket, 1, 0) > 0 && (socket.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

unsigned connection_limit(unsigned wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
    const rlim_t enough = FD_SETSIZE + rlim_t{2} * wanted;  // a stream may have a file, too
    if (limit.rlim_cur < enough) {
        limit.rlim_cur = std::min(enough, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (limit.rlim_cur >= FD_SETSIZE + rlim_t{wanted}) return wanted;
    return std::min(wanted, static_cast<unsigned>(limit.rlim_cur / 2));
}

int out_of_the_way(int descriptor) {
    const int high = fcntl(descriptor, F_DUPFD_CLOEXEC, FD_SETSIZE);
    if (high < 0) return descriptor;
    close(descriptor);
    return high;
}

}  // namespace plendix
