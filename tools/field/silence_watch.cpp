#include "field/silence_watch.h"

namespace plendix {

static constexpr std::chrono::seconds long_silence{10};

void SilenceWatch::asked(std::uint32_t camera, Time now) {
    const auto found = cameras_.find(camera);
    if (found == cameras_.end()) return;
    if (!found->second.asked) found->second = {true, now};
}

void SilenceWatch::heard(std::uint32_t camera, Time now) {
    cameras_[camera] = {false, now};
}

std::optional<std::uint32_t> SilenceWatch::silent(Time now) const {
    for (const auto& [address, camera] : cameras_)
        if (camera.asked && now - camera.since >= long_silence) return address;
    return std::nullopt;
}

}  // namespace plendix
