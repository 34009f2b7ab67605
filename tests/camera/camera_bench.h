// A fleet of simulated cameras and a client of the first of them.
#pragma once

#include <unistd.h>

#include "camera/fleet.h"
#include "tftp_client.h"

namespace plendix::camera::test {

/// Loopback addresses that no other test process uses: one for each number, 1 to 254.
inline std::string own_address(std::size_t number) {
    const int process = getpid();
    return "127." + std::to_string(128 + (process >> 8 & 63)) + "." + std::to_string(process & 255) + "." +
           std::to_string(number);
}

/// A camera with a sensor of so many pixels.
inline Config sensor(unsigned width, unsigned height) {
    return {"", 1, Config{}.model, Config{}.firmware, width, height};
}

class CameraBench : public testing::Test {
protected:
    /// Cameras like this one on own_address(1) and up, instead of those before.
    void start(Config camera = {}, std::size_t count = 1, const Behaviour& behaviour = {}) {
        std::vector<Config> cameras;
        for (std::size_t i = 1; i <= count; ++i) {
            camera.address = own_address(i);
            cameras.push_back(camera);
        }
        fleet.reset();  // its addresses are wanted again
        fleet = std::make_unique<Fleet>(cameras, behaviour);
        fleet->keep_originals(0);
        fleet->start();
    }

    std::unique_ptr<Fleet> fleet;
    TftpClient client{own_address(1)};
};

}  // namespace plendix::camera::test
