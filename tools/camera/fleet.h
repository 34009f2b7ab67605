// Simulated cameras: real UDP on port 69 of loopback addresses, real pictures. One process and
// one I/O thread serve all cameras of a fleet.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "camera/agenda.h"
#include "camera/config.h"

namespace plendix::camera {

class Camera;
class Gallery;
class UdpSocket;

/// Fleets up to this size draw a picture of its own for each request, with the camera's number and
/// the clock. Larger ones share a loop of pictures, each coded once; so do those with a scene file.
constexpr std::size_t most_live_cameras = 4;

/// A fleet of cameras. Built, started and stopped by one thread; everything else may be called
/// from any thread at any time, with i an index into the vector given (std::out_of_range).
class Fleet {
public:
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
    void set_trigger(std::size_t i, bool level);
    int relay(std::size_t i) const;  // -1 never written, 0 low, 1 high
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
    void catch_up();
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
