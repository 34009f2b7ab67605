#include "host/named_cameras.h"

#include "host/command_values.h"
#include "host/diagnosis.h"
#include "usage.h"

namespace plendix {

std::vector<CameraSettings> named_cameras(const std::vector<std::string>& addresses) {
    constexpr std::size_t most = 255;
    if (addresses.size() > most)
        throw UsageError(std::to_string(addresses.size()) + " cameras are too many: 255 at most");
    std::vector<CameraSettings> cameras;
    for (const auto& address : addresses) {
        CameraSettings& camera = cameras.emplace_back();
        camera.number = static_cast<int>(cameras.size());
        camera.address = parse_address(address);
        camera.name = "Camera " + std::to_string(camera.number);
    }
    const auto shared = shared_addresses(cameras);
    if (!shared.empty()) throw UsageError(shared.front());
    return cameras;
}

}  // namespace plendix
