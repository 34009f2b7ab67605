// What the fuzz targets share: input bytes as values, and a network and a clock without an outside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

// An invariant that does not hold ends the run, whatever the build.
inline void require(bool holds) {
    if (!holds) std::abort();
}

// Takes values off the front of the input; an empty input gives zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : p_(data), end_(data + size) {}
    bool empty() const { return p_ == end_; }
    std::uint8_t byte() { return empty() ? std::uint8_t{0} : *p_++; }
    std::uint16_t word() { return static_cast<std::uint16_t>(byte() << 8 | byte()); }
    std::string bytes(std::size_t count) {
        const auto left = static_cast<std::size_t>(end_ - p_);
        std::string taken(reinterpret_cast<const char*>(p_), count < left ? count : left);
        p_ += taken.size();
        return taken;
    }

private:
    const std::uint8_t* p_;
    const std::uint8_t* end_;
};

// fake_network.cpp stands in for the system's socket functions and for timeGetTime.
extern std::uint32_t fake_now;           // what timeGetTime returns
extern unsigned int fake_sends;          // datagrams sent so far
extern std::vector<char> fake_datagram;  // what recvfrom receives
