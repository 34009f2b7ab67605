// A UDP socket bound to an address and port of this machine; non-blocking, closed with its owner. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "field/datagram.h"
#include "host/descriptor.h"
#include "link/packet.h"

namespace plendix {

class ServerSocket {
public:
    /// Port 0 is any free one. Throws Failure, which says what to do.
    ServerSocket(std::uint32_t address, std::uint16_t port);

    int descriptor() const { return descriptor_.get(); }
    /// Into `to`, whose size is the most of a datagram that is wanted; its rest is lost. Nothing when no
    /// datagram waits.
    std::optional<std::size_t> receive(link::Bytes& to, Endpoint& from) const;
    /// What the system does not take is lost, as on any network.
    void send(link::View datagram, const Endpoint& to) const;

private:
    Descriptor descriptor_;
};

}  // namespace plendix
