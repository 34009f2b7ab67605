// What a simulated camera is told when it starts, how it behaves, and what it counts.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "camera/fault/fault.h"
#include "camera/fault/scenario.h"

namespace plendix::camera {

/// What one camera is when it starts.
struct Config {
    std::string address;  // dotted IPv4 loopback address; the camera answers on its port 69
    unsigned number = 1;  // drawn into the picture
    std::uint16_t model = 105, firmware = 61750;
    unsigned sensor_width = 1600, sensor_height = 1200;  // pixels, 16 to 8192 each
    std::array<std::uint8_t, 6> mac{};         // all zero: derived from the address (02-50-4C-xx-xx-xx)
    std::map<int, std::uint16_t> registers{};  // overrides of start values
};

/// Sums since the fleet was built. A silent camera counts its requests and nothing else. Every
/// picture asked for is a frame sent, a frame lost, or still on its way.
struct Counters {
    std::uint64_t requests = 0;                       // datagrams to port 69, bad ones too
    std::uint64_t register_reads = 0;                 // answered
    std::uint64_t register_writes = 0;                // answered, polls of register 25 included
    std::uint64_t pictures = 0;                       // requests for pictures, apart from refused ones
    std::uint64_t frames = 0;                         // pictures sent whole, trailer included
    std::uint64_t key_frames = 0;                     // of these: decodable on their own (every JPEG is)
    std::uint64_t frames_lost = 0;                    // pictures that a fault keeps from the client
    std::uint64_t blocks = 0;                         // DATA packets sent
    std::uint64_t bytes = 0;                          // payload of these
    std::uint64_t acknowledgements = 0;               // accepted; repeated and stray ones are not
    std::uint64_t errors = 0;                         // ERROR packets sent
    std::array<std::uint64_t, fault_kinds> faults{};  // by kind
};

/// What all cameras of a fleet have in common.
struct Behaviour {
    std::string scene;     // picture or video file, relative or absolute; empty: generated
    double rate_mbit = 0;  // datagram bytes of one camera, 10^6 bit/s; 0 as fast as it goes
    unsigned burst = 1;    // blocks sent without waiting for their acknowledgements
    double max_fps = 0;    // pictures per second of one camera; 0 as many as asked for
    std::chrono::milliseconds trigger_period{0};  // the input changes once per period; 0 never
    std::uint64_t seed = 1;                       // of everything that is left to chance
    std::vector<Fault> faults{};                  // in force from the start, for all cameras
    std::vector<ScenarioStep> scenario{};         // in order of time
};

/// Takes one line about a camera; called on the I/O thread.
using Log = std::function<void(const std::string& line)>;

}  // namespace plendix::camera
