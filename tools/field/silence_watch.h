// Whether a camera that was alive does not answer any more. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

namespace plendix {

class SilenceWatch {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A request went to this address, or any datagram came from it.
    void asked(std::uint32_t camera, Time now);
    void heard(std::uint32_t camera, Time now);

    /// A camera from which nothing came for ten seconds though it was asked.
    std::optional<std::uint32_t> silent(Time now) const;

private:
    struct Camera {
        bool asked = false;  // since it was heard
        Time since;
    };
    std::map<std::uint32_t, Camera> cameras_;  // that were heard
};

}  // namespace plendix
