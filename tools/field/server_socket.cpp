#include "field/server_socket.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

#include "usage.h"

namespace plendix {
namespace {

sockaddr_in system_address(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

std::string advice(int error) {
    switch (error) {
        case EACCES:
            return "permission denied: run as root, or with the capability CAP_NET_BIND_SERVICE, or inside "
                   "'unshare -rn' with lo up";
        case EADDRINUSE:
            return "another camera or server has it: end that, or give another --address";
        case EADDRNOTAVAIL:
            return "not an address of this machine: give one of 127.0.0.0/8";
        case EMFILE:
            return "too many open files ('ulimit -n'), each camera wants three: choose some with --camera";
        default:
            return error_text(error);
    }
}

}  // namespace

ServerSocket::ServerSocket(std::uint32_t address, std::uint16_t port)
    : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP)) {
    const sockaddr_in local = system_address({address, port});
    const bool bound =
        descriptor_ && bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
    if (!bound) throw Failure(address_text(address) + " port " + std::to_string(port) + ": " + advice(errno));
}

std::optional<std::size_t> ServerSocket::receive(link::Bytes& to, Endpoint& from) const {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t got =
        recvfrom(descriptor_.get(), to.data(), to.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length);
    if (got < 0) return std::nullopt;
    from = {ntohl(sender.sin_addr.s_addr), ntohs(sender.sin_port)};
    return static_cast<std::size_t>(got);
}

void ServerSocket::send(link::View datagram, const Endpoint& to) const {
    const sockaddr_in address = system_address(to);
    sendto(descriptor_.get(), datagram.data, datagram.size, 0, reinterpret_cast<const sockaddr*>(&address),
           sizeof address);
}

}  // namespace plendix
