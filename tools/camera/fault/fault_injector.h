// Decides when one camera goes wrong. Each kind of fault has its own random numbers, derived from
// the seed and the camera: what other cameras and other kinds do changes nothing.
#pragma once

#include <array>

#include "camera/fault/fault.h"
#include "camera/fault/random.h"
#include "camera/wire/packet.h"
#include "camera/wire/transfer.h"

namespace plendix::camera {

/// One thread.
class FaultInjector {
public:
    FaultInjector(std::uint64_t seed, std::size_t camera);

    void set(const Fault& fault);
    /// Whether the fault comes to the datagram or request at hand; asked once for each.
    bool hits(FaultKind kind);
    std::chrono::milliseconds time(FaultKind kind) const { return entry(kind).time; }

    /// Changes some bytes of a DATA packet's payload.
    void corrupt(Packet& packet);
    /// Leaves less of a DATA packet than any trailer has.
    void truncate(Packet& packet);
    /// Gives a DATA packet a number above the transfer's last.
    void renumber(Packet& packet, std::uint32_t last);
    /// A datagram that no TFTP client understands.
    Bytes garbage(FaultKind kind);
    /// The lower half of a MAC address, another one each time.
    std::array<std::uint8_t, 3> address();

private:
    struct Entry {
        bool once = false;
        double rate = 0;
        std::chrono::milliseconds time{0};
        Random random;
    };
    Entry& entry(FaultKind kind) { return entries_.at(static_cast<std::size_t>(kind)); }
    const Entry& entry(FaultKind kind) const { return entries_.at(static_cast<std::size_t>(kind)); }

    std::array<Entry, fault_kinds> entries_;
};

}  // namespace plendix::camera
