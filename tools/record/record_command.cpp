#include "record/record_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "host/command_values.h"
#include "record/recording.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_cameras = 255;

struct RecordOptions {
    std::vector<std::string> addresses;
    std::string plugin;
    std::string codec;
    std::string size;
    std::string output = "plendix-recording";
    int rate = 0;
    int quality = 0;
    double duration = 0;
    bool no_check = false;
    bool replace = false;
};

void require_range(const char* what, int value, int most) {
    if (value >= 0 && value <= most) return;
    throw UsageError(std::string(what) + ' ' + std::to_string(value) + " is not from 1 to " +
                     std::to_string(most));
}

CameraSettings common_settings(const RecordOptions& options) {
    require_range("rate", options.rate, 60);
    require_range("quality", options.quality, 10);
    CameraSettings settings;
    settings.codec = parse_codec(options.codec);
    settings.rate = options.rate;
    settings.quality = options.quality;
    if (!options.size.empty()) std::tie(settings.width, settings.height) = parse_size(options.size);
    return settings;
}

RecordingPlan plan_of(const RecordOptions& options) {
    if (options.addresses.size() > most_cameras) {
        throw UsageError(std::to_string(options.addresses.size()) + " cameras are too many: 255 at most");
    }
    RecordingPlan plan;
    plan.plugin = options.plugin;
    plan.output = options.output;
    plan.duration = parse_seconds(options.duration);
    plan.check = !options.no_check;
    plan.replace = options.replace;
    for (const auto& address : options.addresses) {
        CameraSettings camera = common_settings(options);
        camera.number = static_cast<int>(plan.cameras.size()) + 1;
        camera.address = parse_address(address);
        camera.name = "Camera " + std::to_string(camera.number);
        plan.cameras.push_back(camera);
    }
    return plan;
}

void add_options(CLI::App& command, RecordOptions& options) {
    command.add_option("camera", options.addresses, "IPv4 addresses; the first is camera 1 and so on")
        ->required();
    command.add_option("--plugin", options.plugin,
                       "the plug-in to load; without it Plendix.so beside this command, in ../src "
                       "(build tree) or below ../lib (installed)");
    command.add_option("--codec", options.codec,
                       "jpeg or h264, for all cameras; without it jpeg where --size is given, else "
                       "each camera's own");
    command.add_option("--rate", options.rate,
                       "frames per second, 1 to 60; without it as many as the sensor gives");
    command.add_option("--size", options.size,
                       "WIDTHxHEIGHT; below the camera's own size the camera sends half resolution");
    command.add_option("--quality", options.quality, "1 to 10, 10 is the finest; without it 4");
    command.add_option("--output", options.output, "folder of the recording")->capture_default_str();
    command.add_option("--duration", options.duration, "seconds; 0 records until Ctrl-C")
        ->capture_default_str();
    command.add_flag("--no-check", options.no_check, "do not decode the files afterwards");
    command.add_flag("--replace", options.replace, "overwrite the recording in the output folder");
}

}  // namespace

void add_record_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<RecordOptions>();
    CLI::App* command = app.add_subcommand("record", "Record cameras through the plug-in");
    command->description(
        "Loads the plug-in as a recorder host does and records what it delivers: per camera a\n"
        "Matroska file with the frames' own times (camera-1.mkv) and a still picture, and all\n"
        "events as JSON lines (events.jsonl). The files play even when this command was killed.\n"
        "Afterwards every recorded frame is decoded, and a table tells how each camera did.");
    command->footer(
        "Examples:\n"
        "  plendix record 192.168.1.20                              until Ctrl-C\n"
        "  plendix record 192.168.1.20 192.168.1.21 --codec h264 --rate 10 --duration 60\n"
        "  plendix record 127.0.1.1 --size 800x600 --output test    with 'plendix camera' running\n"
        "Events and a line per second go to standard error, the table and the names of the files\n"
        "to standard output. A width or height of 0 in events.jsonl is not known yet. The first Ctrl-C\n"
        "ends the recording, the next one the command. Exit code 1: a camera delivered no frame, or one\n"
        "did not decode without an error.");
    add_options(*command, *options);
    command->callback([options, &chosen] { chosen = [options] { return record(plan_of(*options)); }; });
}

}  // namespace plendix
