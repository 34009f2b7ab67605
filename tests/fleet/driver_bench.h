// One connection of the driver to a simulated camera, driven by the test instead of the worker.
#pragma once

#include "device/device.h"
#include "platform/clock.h"
#include "support/camera_bench.h"
#include "support/host.h"

namespace plendix::camera::test {

class DriverBench : public CameraBench {
protected:
    /// A camera like this one, and the driver's device for it.
    void connect(const Config& camera, std::size_t count = 1) {
        start(camera, count);
        device = std::make_unique<CDevice>(7);
        device->m_bEnabled = true;
        device->m_sAddress = own_address(1);
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
    std::vector<Bytes> delivered() const {
        std::vector<Bytes> pictures;
        for (const auto& frame : host.frames())
            pictures.emplace_back(frame.data.begin(), frame.data.end());
        return pictures;
    }

    RecordingHost host;
    std::unique_ptr<CDevice> device;
    bool changed = false;  // what the host sees
};

}  // namespace plendix::camera::test
