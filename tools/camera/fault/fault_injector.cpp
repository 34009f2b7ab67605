#include "camera/fault/fault_injector.h"

#include <algorithm>

namespace plendix::camera {

namespace {

constexpr std::size_t header = 4;  // of a DATA packet

}  // namespace

FaultInjector::FaultInjector(std::uint64_t seed, std::size_t camera) {
    Random seeds(seed ^ (0xD1B54A32D192ED03U * (camera + 1)));
    for (Entry& entry : entries_)
        entry.random = Random(seeds.next());
}

void FaultInjector::set(const Fault& fault) {
    Entry& changed = entry(fault.kind);
    changed.time = fault.time;
    if (fault.once)
        changed.once = true;
    else
        changed.rate = fault.rate;
}

bool FaultInjector::hits(FaultKind kind) {
    Entry& asked = entry(kind);
    if (asked.once) {
        asked.once = false;
        return true;
    }
    return asked.rate > 0 && asked.random.unit() < asked.rate;
}

void FaultInjector::corrupt(Packet& packet) {
    constexpr std::size_t most = 8;
    Random& random = entry(FaultKind::corrupt).random;
    for (std::size_t count = 1 + random.below(most); count > 0 && packet.bytes.size() > header; --count) {
        std::uint8_t& byte = packet.bytes[header + random.below(packet.bytes.size() - header)];
        byte = static_cast<std::uint8_t>(byte ^ (1 + random.below(255)));
    }
}

void FaultInjector::truncate(Packet& packet) {
    constexpr std::size_t trailer = 90;  // bytes of the shortest one
    const std::size_t most = std::min(packet.bytes.size() - header, trailer);
    packet.bytes.resize(header + (most == 0 ? 0 : entry(FaultKind::truncate).random.below(most)));
}

void FaultInjector::renumber(Packet& packet, std::uint32_t last) {
    const std::uint32_t room = 65535 - std::min<std::uint32_t>(last, 65534);
    const auto step = static_cast<std::uint32_t>(entry(FaultKind::wrong_block).random.below(room));
    const std::uint32_t number = 65535 - step;
    packet.bytes[2] = static_cast<std::uint8_t>(number >> 8);
    packet.bytes[3] = static_cast<std::uint8_t>(number);
}

Bytes FaultInjector::garbage(FaultKind kind) {
    constexpr std::size_t least = 4, most = 600;
    Random& random = entry(kind).random;
    Bytes bytes(least + random.below(most - least + 1));
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(random.next());
    bytes[0] |= 0x10;  // opcodes are below 16
    return bytes;
}

std::array<std::uint8_t, 3> FaultInjector::address() {
    const std::uint64_t drawn = entry(FaultKind::mac_change).random.next();
    return {static_cast<std::uint8_t>(drawn >> 16), static_cast<std::uint8_t>(drawn >> 8),
            static_cast<std::uint8_t>(drawn)};
}

}  // namespace plendix::camera
