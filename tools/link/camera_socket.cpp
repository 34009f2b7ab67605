#include "link/camera_socket.h"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace plendix::link {
namespace {

constexpr int most_strangers = 64;  // thrown away at a time

/// The error in a message of the error queue; 0 where there is none.
int error_in(msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_IP || part->cmsg_type != IP_RECVERR) continue;
        sock_extended_err error{};
        std::memcpy(&error, CMSG_DATA(part), sizeof error);
        return static_cast<int>(error.ee_errno);
    }
    return 0;
}

}  // namespace

CameraSocket::CameraSocket(in_addr host)
    : host_(host), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (socket_ < 0) error_ = errno;
    const int on = 1;  // ICMP errors wait in the socket's error queue then, for any peer
    if (socket_ >= 0) setsockopt(socket_, SOL_IP, IP_RECVERR, &on, sizeof on);
}

CameraSocket::~CameraSocket() {
    if (socket_ >= 0) close(socket_);
}

int CameraSocket::send(const Bytes& datagram, std::uint16_t port) {
    const sockaddr_in peer{AF_INET, htons(port), host_, {}};
    // The error of an earlier packet is reported here, too, in place of sending this one.
    for (int attempt = 0;; ++attempt) {
        if (sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&peer),
                   sizeof peer) >= 0)
            return 0;
        const int error = errno;
        if (error == EAGAIN || error == ENOBUFS || error == EINTR) return 0;
        if (const int earlier = take_error()) return earlier;
        if (attempt > 0) return error;
    }
}

std::optional<CameraSocket::Received> CameraSocket::receive(Bytes& buffer) {
    for (int i = 0; i < most_strangers; ++i) {
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        const ssize_t length = recvfrom(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&sender), &size);
        if (length < 0) return std::nullopt;
        if (sender.sin_addr.s_addr == host_.s_addr)
            return Received{{buffer.data(), static_cast<std::size_t>(length)}, ntohs(sender.sin_port)};
    }
    return std::nullopt;
}

int CameraSocket::take_error() {
    for (;;) {
        std::array<char, 512> control{};
        sockaddr_in peer{};  // that the packet went to
        msghdr message{};
        message.msg_name = &peer;
        message.msg_namelen = sizeof peer;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        if (recvmsg(socket_, &message, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return 0;
        const int error = error_in(message);
        if (error != 0 && peer.sin_port == htons(camera_port)) return error;
    }
}

}  // namespace plendix::link
