#include "host/camera_settings.h"

#include <tuple>

namespace plendix {
namespace {

auto values(const Crop& crop) {
    return std::tie(crop.left, crop.top, crop.width, crop.height);
}

auto values(const CameraSettings& camera) {
    return std::tie(camera.number, camera.address, camera.name, camera.enabled, camera.codec, camera.rate,
                    camera.quality, camera.width, camera.height, camera.crop, camera.mask, camera.brightness,
                    camera.saturation, camera.sharpness, camera.sensitivity, camera.trigger_name,
                    camera.trigger_normally_closed, camera.relay_name, camera.relay_normally_low);
}

}  // namespace

bool Crop::operator==(const Crop& other) const {
    return values(*this) == values(other);
}

bool CameraSettings::operator==(const CameraSettings& other) const {
    return values(*this) == values(other);
}

}  // namespace plendix
