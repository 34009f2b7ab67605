// Simulated cameras: real UDP on port 69 of loopback addresses, real pictures. One process and
// one I/O thread serve all cameras of a fleet.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "camera/agenda.h"
#include "camera/fault.h"
#include "camera/scenario.h"

namespace plendix::camera {

class Camera;
class Gallery;
class UdpSocket;

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

/// Fleets up to this size draw a picture of its own for each request, with the camera's number and
/// the clock. Larger ones share a loop of pictures, each coded once; so do those with a scene file.
constexpr std::size_t most_live_cameras = 4;

/// A fleet of cameras. Built, started and stopped by one thread; everything else may be called
/// from any thread at any time, with i an index into the vector given (std::out_of_range).
class Fleet {
public:
    using Log = std::function<void(const std::string& line)>;  // called on the I/O thread

    /// Binds the sockets of all cameras, or throws Failure with one line that names the address
    /// and the way out, or the scene file. Relay changes and register writes are always logged,
    /// each request when verbose.
    explicit Fleet(const std::vector<Config>& cameras, Log log = {}, bool verbose = false);
    Fleet(const std::vector<Config>& cameras, const Behaviour& behaviour, Log log = {}, bool verbose = false);
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    void start();
    void stop();  // waits for the I/O thread; calling it again does nothing
    std::size_t size() const { return cameras_.size(); }

    Counters counters(std::size_t i) const;
    /// The file names asked for, oldest first, at most the last 10000.
    std::vector<std::string> requested(std::size_t i) const;
    /// What a client that reads the register now would get.
    std::uint16_t get_register(std::size_t i, int number) const;
    /// Sets any register, also those that clients cannot write.
    void set_register(std::size_t i, int number, std::uint16_t value);
    void set_trigger(std::size_t i, bool level);
    int relay(std::size_t i) const;               // -1 never written, 0 low, 1 high
    void set_silent(std::size_t i, bool silent);  // receives but does not answer
    /// Takes effect on the I/O thread, before it serves what arrives after this call.
    void inject(std::size_t i, const Fault& fault);

    /// From now on the camera keeps each picture it serves as the codec wrote it, all headers
    /// included, for comparison with what a client made of it. Unbounded: for tests.
    void keep_originals(std::size_t i);
    std::vector<std::vector<std::uint8_t>> originals(std::size_t i) const;

private:
    void run();
    void plan_start();
    void toggle_triggers(bool level);
    void run_posted();
    void arm_timer();
    void post(std::function<void()> action);

    const Behaviour behaviour_;
    Agenda agenda_;
    std::unique_ptr<Gallery> gallery_;
    std::unique_ptr<UdpSocket> stranger_;
    std::vector<std::unique_ptr<Camera>> cameras_;
    int epoll_ = -1;
    int wake_ = -1;
    int timer_ = -1;
    std::mutex mutex_;
    std::vector<std::function<void()>> posted_;  // guarded by mutex_
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace plendix::camera
