#include "record/export_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "ffmpeg.h"
#include "host/signals.h"
#include "record/clip_export.h"
#include "record/clock_text.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr int most_cameras = 255;

struct ExportOptions {
    std::string folder;
    int camera = 0;
    std::string from;
    std::string to;
    std::string output;
    bool replace = false;
    bool utc = false;
};

ClipPlan plan_of(const ExportOptions& options) {
    if (options.camera < 1 || options.camera > most_cameras)
        throw UsageError("--camera " + std::to_string(options.camera) + " is not from 1 to 255");
    ClipPlan plan;
    plan.folder = options.folder;
    plan.camera = options.camera;
    plan.from_ms = parse_moment("--from", options.from, options.utc, DayMeans::its_beginning);
    plan.to_ms = parse_moment("--to", options.to, options.utc, DayMeans::its_end);
    plan.output = options.output;
    plan.replace = options.replace;
    plan.utc = options.utc;
    if (plan.from_ms >= plan.to_ms)
        throw UsageError("--to " + options.to + " is not after --from " + options.from);
    return plan;
}

int export_and_tell(const ExportOptions& options) {
    av_log_set_level(AV_LOG_FATAL);
    const ClipPlan plan = plan_of(options);
    const StopSignals signals;
    const Clip clip = export_clip(plan, [&signals] { return signals.requested(); });
    std::cerr << options.output << ": " << clip.frames << " frames from "
              << moment_text(clip.first_ms, plan.utc) << " to " << moment_text(clip.last_ms, plan.utc)
              << '\n';
    return exit_done;
}

}  // namespace

void add_export_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<ExportOptions>();
    CLI::App* command = app.add_subcommand("export", "Cut a clip out of a recording");
    command->description(
        "Copies what one camera recorded in a span of time into one Matroska file, across segments and\n"
        "without coding it anew. It begins with the key frame at or before --from.");
    command->footer(
        "Examples:\n"
        "  plendix export recording --camera 1 --from 2026-11-23T14:00 --to 2026-11-23T14:02:30 -o clip.mkv\n"
        "  plendix export recording --camera 1 --from 2026-11-23 --to 2026-11-23 -o day.mkv\n"
        "Times are local, or UTC with Z or --utc; --to with a day alone is the end of that day. The segment\n"
        "that is being recorded counts up to its last picture. Where codec, size or parameter sets change\n"
        "within the span, nothing is written, and the message names the moment.");
    command->add_option("folder", options->folder, "folder of the recording")->required();
    command->add_option("--camera", options->camera, "number, 1 to 255")->required();
    command->add_option("--from", options->from, "first moment, as 2026-11-23T14:00:05")->required();
    command->add_option("--to", options->to, "end, not included")->required();
    command->add_option("-o,--output", options->output, "file to write")->required();
    command->add_flag("--replace", options->replace, "overwrite the file");
    command->add_flag("--utc", options->utc, "times without Z are UTC, printed ones too");
    command->callback([options, &chosen] { chosen = [options] { return export_and_tell(*options); }; });
}

}  // namespace plendix
