#include "live/live_options.h"

#include <tuple>

#include "host/command_values.h"
#include "usage.h"

namespace plendix {

void add_live_options(CLI::App& command, LiveOptions& options) {
    command.add_option("address", options.address, "IPv4 address of the camera")->required();
    command.add_option("--codec", options.codec,
                       "jpeg or h264; without it jpeg where --size is given, else the camera's own");
    command.add_option("--size", options.size,
                       "WIDTHxHEIGHT; below the camera's own size the camera sends half resolution");
    command.add_option("--quality", options.quality, "1 to 10, 10 is the finest; without it 4");
    command.add_flag(
        "--relay-normally-low", options.relay_normally_low,
        "the driver holds the camera's relay output at its level without an alarm: low with this, "
        "else high");
    command
        .add_option("--timeout", options.timeout, "gives up where the first picture takes longer than this")
        ->capture_default_str();
    command.add_option("--plugin", options.plugin, "the plug-in to load; without it as for 'plendix record'");
}

void add_rate_option(CLI::App& command, LiveOptions& options) {
    command.add_option("--rate", options.rate,
                       "frames per second, 1 to 60; without it as many as the sensor gives");
}

CameraSettings camera_of(const LiveOptions& options) {
    CameraSettings camera;
    camera.number = 1;
    camera.name = "Camera 1";
    camera.address = parse_address(options.address);
    camera.relay_normally_low = options.relay_normally_low;
    if (options.codec) camera.codec = parse_codec(*options.codec);
    if (options.size) std::tie(camera.width, camera.height) = parse_size(*options.size);
    require_range("rate", camera.rate = options.rate.value_or(0), 60);
    require_range("quality", camera.quality = options.quality.value_or(0), 10);
    return camera;
}

std::chrono::milliseconds timeout_of(const LiveOptions& options) {
    const auto timeout = parse_duration(options.timeout);
    if (timeout.count() > 0) return timeout;
    throw UsageError("timeout '" + options.timeout + "' leaves a camera no time: 15s is a good one");
}

}  // namespace plendix
