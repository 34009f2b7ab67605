#include "live/stream_command.h"

#include <memory>
#include <optional>

#include "host/command_values.h"
#include "live/live_options.h"
#include "live/stream.h"
#include "usage.h"

namespace plendix {
namespace {

struct StreamOptions {
    LiveOptions live;
    std::string format = "mkv";
    std::optional<std::string> duration;
};

/// A format that has one codec only asks for it.
void settle_codec(CameraSettings& camera, StreamFormat format) {
    if (format == StreamFormat::matroska) return;
    const Codec needed = format == StreamFormat::mpeg_ts ? Codec::h264 : Codec::jpeg;
    if (camera.codec != Codec::camera_default && camera.codec != needed)
        throw UsageError(std::string(format_name(format)) + " has no " +
                         (needed == Codec::h264 ? "JPEG" : "H.264") + " pictures: take --codec " +
                         (needed == Codec::h264 ? "h264" : "jpeg") + " or --format mkv");
    camera.codec = needed;
}

StreamPlan plan_of(const StreamOptions& options) {
    StreamPlan plan;
    plan.camera = camera_of(options.live);
    plan.format = parse_stream_format(options.format);
    settle_codec(plan.camera, plan.format);
    plan.timeout = timeout_of(options.live);
    if (options.duration) plan.duration = parse_duration(*options.duration);
    plan.plugin = options.live.plugin;
    require_no_terminal("plendix stream " + plan.camera.address + " | mpv -");
    return plan;
}

}  // namespace

void add_stream_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<StreamOptions>();
    CLI::App* command = app.add_subcommand("stream", "One camera's pictures to standard output");
    command->description(
        "Sends what a camera pictures to standard output, for other programs: it begins with a key frame,\n"
        "each picture leaves when it comes, and a reader that is too slow loses pictures, never gets late\n"
        "ones. When the camera falls silent and comes back the stream goes on. It ends when the reader\n"
        "goes away.");
    command->footer(
        "Examples:\n"
        "  plendix stream 192.168.1.20 | mpv --profile=low-latency -\n"
        "  plendix stream 192.168.1.20 --format ts | ffmpeg -i - -c copy -f rtsp rtsp://127.0.0.1:8554/door\n"
        "  plendix stream 192.168.1.20 --codec jpeg --size 800x600 --rate 5 --duration 60 > door.mkv\n"
        "docs/bridges.md has more. What comes, silence, return and the total go to standard error. The\n"
        "driver writes the camera's motion registers and its relay level, see --relay-normally-low.\n"
        "Exit code 0: ended by the reader, by a signal or by --duration; 1: no picture came in time, the\n"
        "driver refuses the camera, or its pictures do not fit the format; 2: wrong usage.");
    add_live_options(*command, options->live);
    add_rate_option(*command, options->live);
    command
        ->add_option("--format", options->format,
                     "mkv (Matroska), ts (MPEG-TS, asks for H.264) or mjpeg (multipart JPEG, asks for JPEG)")
        ->capture_default_str();
    command->add_option(
        "--duration", options->duration,
        "how long from the first picture on, as in 90s, 10m; without it until somebody ends it");
    command->callback([options, &chosen] { chosen = [options] { return stream(plan_of(*options)); }; });
}

}  // namespace plendix
