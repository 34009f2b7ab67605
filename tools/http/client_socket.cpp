#include "http/client_socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

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
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur / 2 > wanted) return wanted;
    return static_cast<unsigned>(limit.rlim_cur / 2);
}

}  // namespace plendix
