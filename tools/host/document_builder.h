// The documents that a host hands to the plug-in.
#pragma once

#include <string>
#include <vector>

#include "host/camera_settings.h"

namespace plendix {

/// The width and height that ask for the whole sensor: larger than any, so never halved.
constexpr int whole_sensor = 65535;

/// True for a camera that chooses its codec and sends its whole sensor.
bool has_own_shape(const CameraSettings& camera);

/// Configuration document that creates or changes these cameras, each with every setting but those of
/// `picture_document`. An old one to which a size was given keeps to half resolution even when none is
/// wanted any more: it has to be removed first.
std::string configure_document(const std::vector<CameraSettings>& cameras);

/// Configuration document with the values that the driver reads from a camera at each connection and
/// takes for the wanted ones then: brightness, saturation, sharpness, sensitivity. So it has to be sent
/// after each beginning of video, of which it causes none. Handed over within the event of that beginning
/// it is served before the next picture is asked for, later the sensitivity costs the picture under way.
/// Empty when none is wanted.
std::string picture_document(const CameraSettings& camera);

/// Configuration document that makes `after` of `before`; cameras are the same by number. It names only
/// what changed, and is empty when nothing did. Removed and added again, which reports no end of video,
/// is a camera with another address, and one that is to choose its own size after one was wanted. A
/// picture value that is no longer wanted stays as it is in the camera.
std::string change_document(const std::vector<CameraSettings>& before,
                            const std::vector<CameraSettings>& after);

/// Configuration document that changes nothing of this camera, which the plug-in must have, and makes
/// the plug-in send its complete configuration.
std::string query_document(int camera);

/// Configuration document that removes every camera the plug-in may know.
std::string remove_all_document();

/// Write document: action `action` holds the relay active, or no longer.
std::string relay_document(int camera, int action, bool active);
/// Write document: marks the frames from now on as recorded, or no longer.
std::string recording_document(int camera, int action, bool active);

}  // namespace plendix
