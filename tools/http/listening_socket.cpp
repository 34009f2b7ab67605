#include "http/listening_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "usage.h"

namespace plendix {
namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolved(const ListenAddress& address) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &wanted, &found);
    if (error != 0) throw UsageError("cannot listen at " + address.host + ": " + gai_strerror(error));
    return {found, freeaddrinfo};
}

void set(int descriptor, int level, int option, int value) {
    setsockopt(descriptor, level, option, &value, sizeof value);
}

/// A server that was just ended does not keep its address; [::] hears version 4, too.
bool listen_on(int descriptor, const addrinfo& address) {
    set(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
    if (address.ai_family == AF_INET6) set(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, 0);
    return bind(descriptor, address.ai_addr, address.ai_addrlen) == 0 && listen(descriptor, SOMAXCONN) == 0;
}

}  // namespace

int open_listening_socket(const ListenAddress& address) {
    const AddressList found = resolved(address);
    const int descriptor = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP);
    if (descriptor >= 0 && listen_on(descriptor, *found)) return descriptor;
    const int error = errno;
    if (descriptor >= 0) close(descriptor);
    throw Failure("cannot listen at " + host_text(address.host) + ":" + std::to_string(address.port) + ": " +
                  error_text(error) + (error == EADDRINUSE ? "; --listen takes another port" : ""));
}

int port_of_socket(int descriptor) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    in_port_t port = 0;  // in the same place of both kinds
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port), "of both kinds");
    std::memcpy(&port, reinterpret_cast<const char*>(&address) + offsetof(sockaddr_in, sin_port),
                sizeof port);
    return ntohs(port);
}

}  // namespace plendix
