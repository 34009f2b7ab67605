#include "live/snapshot_command.h"

#include <memory>
#include <optional>

#include "host/command_values.h"
#include "live/live_options.h"
#include "live/snapshot.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::chrono::milliseconds shortest_period{1000};  // names have seconds

struct SnapshotOptions {
    LiveOptions live;
    std::string output;
    std::optional<std::string> every;
    std::optional<std::uint64_t> count;
};

SnapshotPlan plan_of(const SnapshotOptions& options) {
    SnapshotPlan plan;
    plan.camera = camera_of(options.live);
    plan.output = options.output;
    plan.timeout = timeout_of(options.live);
    plan.plugin = options.live.plugin;
    if (options.every) plan.every = parse_duration(*options.every);
    if (options.every && plan.every < shortest_period)
        throw UsageError("every '" + *options.every + "' is less than a second");
    if (options.count && !options.every) throw UsageError("--count needs --every, as in --every 10s");
    plan.count = options.count.value_or(0);
    if (options.count && plan.count == 0) throw UsageError("--count 0 takes no picture");
    if (plan.output == "-") require_no_terminal("plendix snapshot " + plan.camera.address + " -o door.jpg");
    return plan;
}

}  // namespace

void add_snapshot_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<SnapshotOptions>();
    CLI::App* command = app.add_subcommand("snapshot", "One picture of a camera as a file");
    command->description(
        "Takes the first picture of a camera that decodes and writes it as JPEG or PNG, by the file's\n"
        "extension; where the camera sends H.264 that is a key frame. The file is there as a whole or not\n"
        "at all.");
    command->footer(
        "Examples:\n"
        "  plendix snapshot 192.168.1.20 -o door.jpg\n"
        "  plendix snapshot 192.168.1.20 -o - --size 800x600 > door.jpg\n"
        "  plendix snapshot 192.168.1.20 -o door.jpg --every 10s    door-2026-11-23T14-00-00Z.jpg and so on\n"
        "The camera's own brightness, saturation and sharpness stay as they are. The driver writes its\n"
        "motion registers and its relay level, see --relay-normally-low. Exit code 0: there is a picture;\n"
        "1: none came in time, the driver refuses the camera, or the file cannot be written; 2: wrong "
        "usage.");
    add_live_options(*command, options->live);
    command
        ->add_option("-o,--output", options->output, "file (.jpg or .png), or - for standard output (JPEG)")
        ->required();
    command->add_option("--every", options->every,
                        "a picture each time so long has gone, as in 10s, 5m; their time (UTC) comes into "
                        "the files' names. Of H.264 it is the next key frame, up to 2 s later");
    command->add_option("--count", options->count, "ends after so many; without it until Ctrl-C");
    command->callback(
        [options, &chosen] { chosen = [options] { return take_snapshots(plan_of(*options)); }; });
}

}  // namespace plendix
