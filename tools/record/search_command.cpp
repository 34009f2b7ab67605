#include "record/search_command.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/event_json.h"
#include "record/clock_text.h"
#include "record/motion_search.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr int most_cameras = 255;
constexpr double longest_gap = 24 * 3600;  // seconds
constexpr std::int64_t end_of_time = 253'402'300'800'000;

struct SearchOptions {
    std::string folder;
    int camera = 0;
    std::vector<std::string> zones;
    std::string from;
    std::string to;
    double gap = 2;
    bool enabled_only = false;
    bool json = false;
    bool utc = false;
};

MotionQuery query_of(const SearchOptions& options, bool camera_given) {
    if (camera_given && (options.camera < 1 || options.camera > most_cameras))
        throw UsageError("--camera " + std::to_string(options.camera) + " is not from 1 to 255");
    if (!(options.gap >= 0 && options.gap <= longest_gap))
        throw UsageError("--gap is not a number of seconds from 0 to a day");
    MotionQuery query;
    query.camera = options.camera;
    query.zones = parse_zones(options.zones);
    query.enabled_only = options.enabled_only;
    query.gap_ms = std::llround(options.gap * 1000);
    query.to_ms = end_of_time;
    if (!options.from.empty())
        query.from_ms = parse_moment("--from", options.from, options.utc, DayMeans::its_beginning);
    if (!options.to.empty()) query.to_ms = parse_moment("--to", options.to, options.utc, DayMeans::its_end);
    if (query.from_ms >= query.to_ms) throw UsageError("--to " + options.to + " is not after --from");
    return query;
}

void print_json(const MotionSpan& span) {
    const nlohmann::ordered_json line{{"camera", span.camera},
                                      {"from", utc_text(span.first_ms)},
                                      {"to", utc_text(span.last_ms)},
                                      {"ms", span.last_ms - span.first_ms}};
    std::cout << line.dump() << '\n';
}

void print_text(const MotionSpan& span, bool utc) {
    char length[32];
    std::snprintf(length, sizeof length, "%10.3f s",
                  static_cast<double>(span.last_ms - span.first_ms) / 1000);
    std::cout << moment_text(span.first_ms, utc) << "  " << moment_text(span.last_ms, utc) << "  " << length
              << "  camera " << span.camera << '\n';
}

int search(const SearchOptions& options, bool camera_given) {
    std::vector<std::string> faults;
    const auto spans = find_motion(options.folder, query_of(options, camera_given), faults);
    for (const MotionSpan& span : spans)
        options.json ? print_json(span) : print_text(span, options.utc);
    std::cout << std::flush;
    for (const std::string& fault : faults)
        std::cerr << "plendix: " << fault << '\n';
    if (spans.empty()) std::cerr << "no motion\n";
    if (!std::cout) throw Failure("cannot write to standard output");
    return faults.empty() ? exit_done : exit_failed;
}

}  // namespace

void add_search_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<SearchOptions>();
    CLI::App* command = app.add_subcommand("search", "Find motion in a recording");
    command->description(
        "Prints the spans of time in which something moved, from the motion files that 'plendix record'\n"
        "keeps beside its movies; no picture is decoded. A line each: first and last picture with motion,\n"
        "length, camera.");
    command->footer(
        "Examples:\n"
        "  plendix search recording --camera 1 --zones 2-4,0-3 --from 2026-11-23 --to 2026-11-23\n"
        "  plendix search recording --from 2026-11-23T14:00 --to 2026-11-23T14:30:05Z --json\n"
        "A picture has 8 x 8 zones: row 0 is the top, column 0 the left. Times are local, or UTC with Z or\n"
        "--utc; --to with a day alone is the end of that day. Objects of --json are in UTC. Exit code 1:\n"
        "a file could not be read; what the others have is printed.");
    command->add_option("folder", options->folder, "folder of the recording")->required();
    CLI::Option* camera =
        command->add_option("--camera", options->camera, "number, 1 to 255; without it all");
    command
        ->add_option("--zones", options->zones,
                     "ROWS,COLUMNS with 0 to 7 or a range each, may be repeated; without it all zones")
        ->allow_extra_args(false);
    command->add_option("--from", options->from, "first moment, as 2026-11-23 or 2026-11-23T14:00:05");
    command->add_option("--to", options->to, "end, not included");
    command->add_option("--gap", options->gap, "seconds; spans that are not farther apart are one")
        ->capture_default_str();
    command->add_flag("--masked", options->enabled_only,
                      "only pictures with motion that the camera's mask let through");
    command->add_flag("--json", options->json, "one JSON object a line");
    command->add_flag("--utc", options->utc, "times without Z are UTC, printed ones too");
    command->callback([options, camera, &chosen] {
        const bool given = camera->count() > 0;
        chosen = [options, given] { return search(*options, given); };
    });
}

}  // namespace plendix
