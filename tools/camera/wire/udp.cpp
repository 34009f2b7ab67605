#include "camera/wire/udp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "usage.h"

namespace plendix::camera {

namespace {

sockaddr_in socket_address(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = endpoint.address;
    address.sin_port = endpoint.port;
    return address;
}

std::string advice(int error) {
    switch (error) {
        case EACCES:
            return "permission denied: run as root, or allow the port (capability CAP_NET_BIND_SERVICE, or "
                   "sysctl net.ipv4.ip_unprivileged_port_start=69), or run inside 'unshare -rn' with lo up";
        case EADDRINUSE:
            return "in use by another camera or TFTP server: stop it or take another address";
        case EADDRNOTAVAIL:
            return "not an address of this machine: take one of 127.0.0.0/8";
        default:
            return error_text(error);
    }
}

}  // namespace

std::uint32_t parse_address(const std::string& dotted) {
    in_addr address{};
    if (inet_pton(AF_INET, dotted.c_str(), &address) != 1)
        throw Failure("'" + dotted + "' is not an IPv4 address such as 127.0.1.1");
    return address.s_addr;
}

UdpSocket::UdpSocket(const std::string& dotted, std::uint16_t port) : descriptor_(-1) {
    const sockaddr_in address = socket_address({parse_address(dotted), htons(port)});
    const std::string name = dotted + " port " + std::to_string(port) + ": ";
    descriptor_ = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP);
    if (descriptor_ < 0) throw Failure(name + "no socket: " + error_text(errno));
    if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(descriptor_);
        throw Failure(name + advice(error));
    }
}

UdpSocket::~UdpSocket() {
    close(descriptor_);
}

std::ptrdiff_t UdpSocket::receive(std::uint8_t* data, std::size_t capacity, Endpoint& from) const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ssize_t received = -1;
    do {  // a queued ICMP error is not a datagram: read on
        received = recvfrom(descriptor_, data, capacity, 0, reinterpret_cast<sockaddr*>(&address), &length);
    } while (received < 0 && (errno == EINTR || errno == ECONNREFUSED));
    from = {address.sin_addr.s_addr, address.sin_port};
    return received;
}

void UdpSocket::send(const std::uint8_t* data, std::size_t size, const Endpoint& to) const {
    const sockaddr_in address = socket_address(to);
    sendto(descriptor_, data, size, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace plendix::camera
