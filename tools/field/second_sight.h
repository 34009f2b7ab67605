// A machine's interfaces lie upon each other (bridges, bonds, virtual networks): whoever captures on all
// of them sees a datagram once on each. One thread.
#pragma once

#include <array>
#include <cstdint>

#include "field/datagram.h"

namespace plendix {

class SecondSight {
public:
    /// Whether the datagram was seen on another interface a moment before. A camera that sends the same
    /// twice is seen twice on the same one.
    bool seen(const CapturedPacket& packet, const Datagram& datagram);

private:
    struct Sight {
        std::int64_t time_ns = 0;
        Endpoint from, to;
        std::size_t size = 0;
        std::uint32_t content = 0;  // the payload's first bytes
        std::uint16_t ip_id = 0;
        std::uint32_t interface = 0;
    };
    std::array<Sight, 128> sights_{};
    std::size_t next_ = 0;
    std::uint32_t last_interface_ = 0;
    bool several_ = false;  // interfaces were there; as long as not, there is nothing to search
};

}  // namespace plendix
