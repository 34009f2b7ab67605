// One connection of the driver to a simulated camera, driven by the test instead of the worker.
#pragma once

#include <gmock/gmock.h>
#include <poll.h>

#include "camera/fleet.h"
#include "device/device.h"
#include "platform/clock.h"
#include "support/host.h"
#include "tftp_client.h"

namespace plendix::camera::test {

/// Loopback addresses that no other test process uses: one for each number, 1 to 254.
inline std::string own_address(std::size_t number) {
    const int process = getpid();
    return "127." + std::to_string(128 + (process >> 8 & 63)) + "." + std::to_string(process & 255) + "." +
           std::to_string(number);
}

class DriverBench : public testing::Test {
protected:
    void connect(const std::string& address) {
        device = std::make_unique<CDevice>(7);
        device->m_bEnabled = true;
        device->m_sAddress = address;
        host.clear();
    }
    /// One pass of the worker, as fast as the camera answers, and without what only the time brings:
    /// polls of register 25 and key frames every two seconds.
    void pass() {
        device->m_dwPollTime = device->m_dwOutputTime = timeGetTime();
        if (device->m_Input.m_dwKeyFrameTime != 0) device->m_Input.m_dwKeyFrameTime = timeGetTime();
        if (device->m_Input.m_nFramerate > 0) device->m_Input.m_nFramerate = 1000;
        fd_set read = {}, write = {}, except = {};
        const int descriptor = device->Set(read, write, except);
        timeval limit = {0, 5000};
        if (descriptor >= 0) select(descriptor + 1, &read, nullptr, nullptr, &limit);
        if (device->IsSet(read, write, except)) changed = true;
    }
    /// Passes until the condition holds; false when it does not within 20 s.
    template <typename Condition>
    bool until(Condition condition) {
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (!condition() && Clock::now() < end)
            pass();
        return condition();
    }
    bool frames(std::size_t count) {
        return until([&] { return host.frames().size() >= count; });
    }
    /// Puts the clock of the outstanding transfer over the driver's limit.
    void let_it_stall() { device->m_dwSendTime = (timeGetTime() - 10'001) | 1; }
    /// Passes until then, and lets transfers stall that get no answer for a while.
    template <typename Condition>
    bool despite_stalls(Condition condition) {
        return until([&] {
            const bool waits = device->m_Socket != -1 && device->m_dwSendTime != 0;
            if (waits && timeGetTime() - device->m_dwSendTime > 400) let_it_stall(), ++stalls;
            return condition();
        });
    }
    std::vector<Bytes> delivered() const {
        std::vector<Bytes> pictures;
        for (const auto& frame : host.frames())
            pictures.emplace_back(frame.data.begin(), frame.data.end());
        return pictures;
    }

    RecordingHost host;
    std::unique_ptr<CDevice> device;
    bool changed = false;  // what the host sees
    std::size_t stalls = 0;
};

}  // namespace plendix::camera::test
