#include "field/second_sight.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::int64_t moment_ns = 20'000'000;
constexpr std::size_t interface_at = 4;  // of the second Linux cooked header
constexpr std::size_t compared = 4;      // bytes of the payload: TFTP's opcode and number

std::uint32_t interface_of(const CapturedPacket& packet) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8U | packet.data[interface_at + i];
    return number;
}

}  // namespace

bool SecondSight::seen(const CapturedPacket& packet, const Datagram& datagram) {
    if (packet.link_type != link_cooked2) return false;  // does not tell of interfaces
    Sight sight{datagram.time_ns, datagram.from,       datagram.to, datagram.original_size, 0,
                datagram.ip_id,   interface_of(packet)};
    for (std::size_t i = 0; i < std::min(compared, datagram.size); ++i)
        sight.content = sight.content << 8U | datagram.payload[i];
    const auto same = [&](const Sight& other) {
        return other.from == sight.from && other.to == sight.to && other.ip_id == sight.ip_id &&
               other.size == sight.size && other.content == sight.content &&
               sight.time_ns - other.time_ns <= moment_ns && other.time_ns <= sight.time_ns;
    };
    several_ = several_ || (last_interface_ != 0 && last_interface_ != sight.interface);
    last_interface_ = sight.interface;
    const auto found = several_ ? std::find_if(sights_.begin(), sights_.end(), same) : sights_.end();
    if (found != sights_.end() && found->interface != sight.interface) return true;
    sights_[next_] = sight;
    next_ = (next_ + 1) % sights_.size();
    return false;
}

}  // namespace plendix
