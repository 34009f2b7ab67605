#include "demo/serve_demo.h"

#include "camera/fleet.h"
#include "camera/wire/privilege.h"
#include "serve/house.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t most_kept_bytes = 1U << 30U;

std::vector<camera::Config> simulated() {
    camera::Config jpeg;
    jpeg.address = "127.0.69.1";
    camera::Config h264;
    h264.address = "127.0.69.2";
    h264.number = 2;
    h264.sensor_width = 1920;
    h264.sensor_height = 1088;
    return {jpeg, h264};
}

CameraSettings settings_of(const camera::Config& simulated, const char* name, Codec codec) {
    CameraSettings camera;
    camera.number = static_cast<int>(simulated.number);
    camera.address = simulated.address;
    camera.name = name;
    camera.codec = codec;
    return camera;
}

}  // namespace

std::shared_ptr<void> serve_demo_cameras(HousePlan& house) {
    const auto cameras = simulated();
    camera::enter_private_network({cameras[0].address, cameras[1].address});
    camera::Behaviour behaviour;
    behaviour.trigger_period = 20s;
    auto fleet = std::make_shared<camera::Fleet>(cameras, behaviour);
    fleet->start();
    house.cameras = {settings_of(cameras[0], "Demo door", Codec::jpeg),
                     settings_of(cameras[1], "Demo yard", Codec::h264)};
    house.records = true;
    house.output = house.state / "recording";
    house.rules.segment = 1min;
    house.rules.limits = {1h, most_kept_bytes, false};
    return fleet;
}

}  // namespace plendix
