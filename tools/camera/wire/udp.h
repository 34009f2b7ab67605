// UDP sockets of the cameras: non-blocking, bound, closed with their owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace plendix::camera {

/// IPv4 address and port, both in network order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    bool operator<(const Endpoint& other) const {
        return address != other.address ? address < other.address : port < other.port;
    }
    bool operator==(const Endpoint& other) const { return address == other.address && port == other.port; }
};

/// Throws Failure when the text is no dotted IPv4 address. Result in network order.
std::uint32_t parse_address(const std::string& dotted);

class UdpSocket {
public:
    /// Binds; port 0 takes any free one. Throws Failure with one line that says what to do.
    UdpSocket(const std::string& dotted, std::uint16_t port);
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    int descriptor() const { return descriptor_; }
    /// The datagram's length (the rest of a longer one is lost), or -1 when none is waiting.
    std::ptrdiff_t receive(std::uint8_t* data, std::size_t capacity, Endpoint& from) const;
    /// A datagram that the system does not take is lost, as on any network.
    void send(const std::uint8_t* data, std::size_t size, const Endpoint& to) const;

private:
    int descriptor_;
};

}  // namespace plendix::camera
