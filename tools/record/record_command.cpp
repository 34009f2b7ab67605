#include "record/record_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "host/command_values.h"
#include "host/diagnosis.h"
#include "host/named_cameras.h"
#include "record/config_file.h"
#include "record/recording.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::chrono::minutes longest_checked{1};       // without --check
constexpr std::chrono::minutes segment_with_limits{10};  // what goes is whole segments
constexpr std::uint64_t least_kept_bytes = 1U << 20U;

/// As they stand on the command line: what is not given leaves the configuration file its say.
struct CommandLine {
    std::vector<std::string> addresses;
    std::string config;
    std::optional<std::string> plugin, output, state, duration, segment, keep, keep_size, names, motion_hold;
    bool keep_per_camera = false, replace = false, check = false, no_check = false;
    bool quiet = false, verbose = false, all_events = false;
    std::optional<std::string> codec, size;
    std::optional<int> rate, quality;
};

template <class Value, class Parse>
void take(const std::optional<std::string>& text, Value& value, Parse parse) {
    if (text) value = parse(*text);
}

bool parse_names(const std::string& text) {
    if (text == "local" || text == "utc") return text == "local";
    throw UsageError("names '" + text + "' are neither utc nor local");
}

void override_options(const CommandLine& line, RecordOptions& options) {
    const auto as_it_is = [](const std::string& text) { return text; };
    take(line.plugin, options.plugin, as_it_is);
    take(line.output, options.output, as_it_is);
    take(line.state, options.state, as_it_is);
    take(line.duration, options.duration, parse_duration);
    take(line.segment, options.segment, parse_duration);
    take(line.keep, options.keep, parse_duration);
    take(line.keep_size, options.keep_size, parse_bytes);
    take(line.names, options.local_names, parse_names);
    take(line.motion_hold, options.motion_hold, parse_duration);
    options.keep_per_camera = options.keep_per_camera || line.keep_per_camera;
    options.replace = options.replace || line.replace;
    options.quiet = options.quiet || line.quiet;
    options.verbose = options.verbose || line.verbose;
    options.all_events = options.all_events || line.all_events;
    if (line.check || line.no_check) options.check = line.check;
}

void override_camera(const CommandLine& line, CameraSettings& camera) {
    if (line.codec) camera.codec = parse_codec(*line.codec);
    if (line.size) std::tie(camera.width, camera.height) = parse_size(*line.size);
    if (line.rate) require_range("rate", camera.rate = *line.rate, 60);
    if (line.quality) require_range("quality", camera.quality = *line.quality, 10);
}

/// The cameras of the file or of the command line.
RecorderConfig config_of(const CommandLine& line) {
    RecorderConfig config;
    if (!line.config.empty()) {
        config = read_config(line.config);
    } else {
        if (line.addresses.empty())
            throw UsageError("no camera: give addresses, as in 'plendix record 192.168.1.20', or --config");
        config.cameras = named_cameras(line.addresses);
    }
    for (CameraSettings& camera : config.cameras)
        override_camera(line, camera);
    return config;
}

/// Limits that would leave nothing are a slip: a unit that was forgotten, mostly.
void require_sense(RecordOptions& options) {
    const bool limited = options.keep.count() > 0 || options.keep_size > 0;
    if (limited && options.segment.count() == 0) options.segment = segment_with_limits;
    if (options.keep_size > 0 && options.keep_size < least_kept_bytes)
        throw UsageError("keep-size is " + std::to_string(options.keep_size) +
                         " bytes, which is no recording: give a unit, as in 200G");
    if (options.keep.count() > 0 && options.keep < options.segment)
        throw UsageError("keep is " + std::to_string(options.keep.count() / 1000) +
                         " s, shorter than a segment of " + std::to_string(options.segment.count() / 1000) +
                         " s: give a unit, as in 7d, or shorter segments");
}

RecordingPlan plan_of(const CommandLine& line) {
    if (!line.config.empty() && !line.addresses.empty())
        throw UsageError("'" + line.addresses.front() + "': the cameras stand in the configuration file");
    RecorderConfig config = config_of(line);
    override_options(line, config.options);
    RecordOptions& options = config.options;
    require_sense(options);
    RecordingPlan plan;
    plan.plugin = options.plugin;
    plan.output = options.output;
    plan.state = options.state;
    plan.cameras = std::move(config.cameras);
    plan.duration = options.duration;
    plan.rules = rules_of(options);
    const bool is_short = plan.duration.count() > 0 && plan.duration <= longest_checked;
    plan.check = options.check.value_or(is_short);
    plan.rules.remember_files = plan.check;
    plan.screen = screen_options(STDERR_FILENO);
    plan.screen.quiet = options.quiet;
    plan.screen.verbose = options.verbose;
    plan.screen.all_events = options.all_events;
    plan.screen.motion_hold = options.motion_hold;
    if (line.config.empty()) return plan;
    CommandLine again = line;
    again.config = std::filesystem::absolute(line.config);  // it works in another folder by then
    plan.reload = [again] { return config_of(again).cameras; };
    return plan;
}

void add_camera_options(CLI::App& command, CommandLine& line) {
    command.add_option("camera", line.addresses, "IPv4 addresses; the first is camera 1 and so on");
    command
        .add_option("--config", line.config,
                    "cameras and options from a file, read again at SIGHUP; options given here go "
                    "before the file's")
        ->type_name("FILE");
    command.add_option("--codec", line.codec,
                       "jpeg or h264, for all cameras; without it jpeg where --size is given, else "
                       "each camera's own");
    command.add_option("--rate", line.rate,
                       "frames per second, 1 to 60; without it as many as the sensor gives");
    command.add_option("--size", line.size,
                       "WIDTHxHEIGHT; below the camera's own size the camera sends half resolution");
    command.add_option("--quality", line.quality, "1 to 10, 10 is the finest; without it 4");
}

void add_file_options(CLI::App& command, CommandLine& line) {
    command.add_option("--output", line.output, "folder of the recording; without it plendix-recording");
    command.add_option("--duration", line.duration, "how long, as in 90s, 10m, 12h; without it until Ctrl-C");
    command.add_option("--segment", line.segment,
                       "length of a file, as in 10m: the next one begins with a key frame; without it 10m "
                       "where --keep or --keep-size is given, else as long as the recording goes on");
    command.add_option("--keep", line.keep, "remove files when they are so old, as in 7d");
    command.add_option("--keep-size", line.keep_size,
                       "remove the oldest files when all together are larger, as in 200G");
    command.add_flag("--keep-per-camera", line.keep_per_camera,
                     "--keep-size is for each camera, not for all together");
    command.add_option("--names", line.names, "utc or local: the time in the names of folders and files");
    command.add_flag("--replace", line.replace,
                     "in place of the recording in the output folder, which goes when the first frame is "
                     "recorded; without it the new files come beside the old ones");
    command.add_option("--state", line.state,
                       "folder for the plug-in's settings and log; without it the output folder");
    command.add_option("--plugin", line.plugin,
                       "the plug-in to load; without it Plendix.so beside this command, in ../src "
                       "(build tree) or below ../lib (installed)");
}

void add_screen_options(CLI::App& command, CommandLine& line) {
    auto* check = command.add_flag("--check", line.check,
                                   "decode the files afterwards, as is done without being told after "
                                   "a --duration of up to a minute");
    command.add_flag("--no-check", line.no_check, "do not")->excludes(check);
    auto* quiet = command.add_flag("--quiet", line.quiet, "tell of troubles only");
    command.add_flag("--verbose", line.verbose, "tell the driver's own words, too")->excludes(quiet);
    command.add_option("--motion-hold", line.motion_hold,
                       "motion has ended when there was none for so long; without it 5s");
    command.add_flag("--all-events", line.all_events,
                     "each event as it comes, on the screen and in events.jsonl, without hold and digest");
}

}  // namespace

void add_record_command(CLI::App& app, std::function<int()>& chosen) {
    const auto line = std::make_shared<CommandLine>();
    CLI::App* command = app.add_subcommand("record", "Record cameras through the plug-in");
    command->description(
        "Loads the plug-in as a recorder host does and records what it delivers: per camera and day\n"
        "Matroska files with the frames' own times (camera-1/2026-11-23/14-00-00.mkv), beside each\n"
        "the motion in it, and all events as JSON lines (events.jsonl). The files play even when this\n"
        "command was killed. At the end a table tells how each camera did.");
    command->footer(
        "Examples:\n"
        "  plendix record 192.168.1.20                              until Ctrl-C\n"
        "  plendix record 192.168.1.20 192.168.1.21 --codec h264 --rate 10 --duration 60\n"
        "  plendix record --config /etc/plendix/recorder.toml --segment 10m --keep 7d\n"
        "  plendix record 127.0.1.1 --size 800x600 --output test    with 'plendix camera' running\n"
        "What happens goes to standard error, the table and the names of the files to standard output.\n"
        "The first Ctrl-C ends the recording, the next one the check. Exit code 1: a camera delivered no\n"
        "frame, or one was lost, not taken by the disk, or not decoded without an error; with --config\n"
        "only what ended the recording.");
    add_camera_options(*command, *line);
    add_file_options(*command, *line);
    add_screen_options(*command, *line);
    command->callback([line, &chosen] { chosen = [line] { return record(plan_of(*line)); }; });
}

}  // namespace plendix
