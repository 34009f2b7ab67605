#include "live/live_camera.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds log_period{10};
constexpr std::uintmax_t most_log_bytes = 1U << 20U;

}  // namespace

LiveCamera::LiveCamera(const std::filesystem::path& plugin, const CameraSettings& camera)
    : session_(plugin, {camera}), inside_(scratch_.path()), driver_log_(scratch_.path() / "driver.log") {
    session_.attach(frames_);
}

LiveCamera::~LiveCamera() {
    session_.stop();  // the last time that it saves its settings
}

std::vector<Event> LiveCamera::serve(std::chrono::milliseconds patience) {
    const auto now = Session::Clock::now();
    if (now >= next_check_) {
        driver_log_.rotate_if_large(most_log_bytes);
        next_check_ = now + log_period;
    }
    return session_.serve(patience);
}

}  // namespace plendix
