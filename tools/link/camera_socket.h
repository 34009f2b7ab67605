// A UDP socket with one address at its other end, which also hears what the network says of its packets.
// It never waits. One thread at a time.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "link/packet.h"

namespace plendix::link {

class CameraSocket {
public:
    /// error() tells whether there is a socket.
    explicit CameraSocket(in_addr host);
    ~CameraSocket();
    CameraSocket(const CameraSocket&) = delete;
    CameraSocket& operator=(const CameraSocket&) = delete;

    int descriptor() const { return socket_; }
    int error() const { return error_; }

    /// 0, or the system's number of what keeps it from being sent. A full queue counts as a packet that
    /// is lost on its way.
    int send(const Bytes& datagram, std::uint16_t port);

    struct Received {
        View bytes;  // in the buffer
        std::uint16_t port;
    };
    /// The next datagram of that address; those of others are thrown away.
    std::optional<Received> receive(Bytes& buffer);

    /// What the network, or the machine itself, said of a packet to port 69 since the last call; 0 when
    /// nothing was said. That a transfer's port is closed by now is not told.
    int take_error();

private:
    in_addr host_;
    int socket_;
    int error_ = 0;
};

}  // namespace plendix::link
