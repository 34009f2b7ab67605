#include "field/inspect_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "field/capture_file.h"
#include "field/inspect_report.h"
#include "field/inspector.h"
#include "field/second_sight.h"
#include "host/command_values.h"
#include "host/plain_text.h"
#include "usage.h"

namespace plendix {
namespace {

struct InspectOptions {
    std::string file, camera;
    std::optional<std::string> from, to;
    bool json = false, verbose = false, utc = false;
};

/// Nanoseconds since the capture began.
struct Span {
    std::int64_t from = 0;
    std::int64_t to = std::numeric_limits<std::int64_t>::max();
};

std::int64_t offset_of(const std::string& text) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(parse_duration(text)).count();
}

Span span_of(const InspectOptions& options) {
    Span span;
    if (options.from) span.from = offset_of(*options.from);
    if (options.to) span.to = offset_of(*options.to);
    if (span.from >= span.to) throw UsageError("--to is not after --from");
    return span;
}

std::optional<std::uint32_t> camera_of(const InspectOptions& options) {
    if (options.camera.empty()) return std::nullopt;
    return address_of(parse_address(options.camera));
}

/// Throws Failure where the file ends in front of its first packet's end.
Findings look_through(CaptureReader& reader, const InspectOptions& options) {
    const Span span = span_of(options);
    Inspector inspector(camera_of(options));
    SecondSight sight;
    CapturedPacket packet;
    std::optional<std::int64_t> begin;
    while (reader.next(packet)) {
        if (!begin) begin = packet.time_ns;
        const std::int64_t offset = nanoseconds_between(*begin, packet.time_ns);
        if (offset < span.from || offset >= span.to) continue;
        const auto datagram = datagram_of(packet);
        if (datagram && !sight.seen(packet, *datagram)) inspector.add(*datagram, packet.comment);
    }
    if (!begin && reader.cut_short())
        throw Failure("'" + options.file + "' ends within its first packet: nothing is in it");
    return inspector.finish();
}

/// What the findings rest on.
std::vector<std::string> remarks_of(const CaptureReader& reader, const Findings& findings) {
    std::vector<std::string> remarks;
    if (reader.missed().value_or(0) > 0)
        remarks.push_back("the capture itself missed " + std::to_string(*reader.missed()) +
                          " packets: as many losses may be its own");
    if (reader.cut_short())
        remarks.emplace_back("the file ends within a packet: what is in front of it counts");
    if (!reader.damage().empty())
        remarks.push_back("the file is damaged: " + reader.damage() + "; what is in front of it counts");
    if (findings.cut_requests > 0)
        remarks.push_back(std::to_string(findings.cut_requests) +
                          " requests were not captured whole and cannot be read: capture 200 bytes of each "
                          "packet or more");
    return remarks;
}

int inspect(const InspectOptions& options) {
    camera_of(options);
    span_of(options);
    CaptureReader reader(options.file);
    const Findings findings = look_through(reader, options);
    ReportOptions report;
    report.file = options.file;
    report.remarks = remarks_of(reader, findings);
    report.all = options.verbose;
    report.utc = options.utc;
    (options.json ? print_findings_json : print_findings)(std::cout, findings, report);
    if (!std::cout) throw Failure("cannot write to standard output");
    return reader.damage().empty() ? exit_done : exit_failed;
}

}  // namespace

void add_inspect_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<InspectOptions>();
    CLI::App* command =
        app.add_subcommand("inspect", "Tell from a capture which pictures were lost, and why");
    command->description(
        "Reads a capture of the traffic with cameras, of 'plendix capture', tcpdump or Wireshark, taken on\n"
        "the machine of the recorder. Prints for each camera requests, round-trip times, pictures and lost\n"
        "pictures by cause, and then a time line of what went wrong; what repeats itself within half a\n"
        "minute is one line. docs/field.md tells what each column and each cause is.");
    command->footer(
        "Examples:\n"
        "  plendix inspect field.pcapng\n"
        "  plendix inspect field.pcapng --camera 10.0.0.7 --from 90s --to 2m --verbose\n"
        "  plendix inspect field.pcapng --json | jq '.links[].lost'\n"
        "A capture that ends within a packet, as of a command that was killed, counts as far as it goes; a\n"
        "line says so. Exit code 1: the file cannot be read, ends within its first packet, or is damaged: "
        "what\n"
        "is in front of the damage is printed.");
    command->add_option("file", options->file, "capture, pcapng or pcap; - is standard input")->required();
    command->add_option("--camera", options->camera, "address of the only camera to look at");
    command->add_option("--from", options->from, "leave out what is before, such as 90s since the beginning");
    command->add_option("--to", options->to,
                        "leave out what is from then on, such as 2m since the beginning");
    command->add_flag("--verbose,-v", options->verbose, "each incident in a line of its own, all of them");
    command->add_flag("--utc", options->utc, "times in UTC");
    command->add_flag("--json", options->json, "one JSON object, with all incidents; times in UTC");
    command->callback([options, &chosen] { chosen = [options] { return inspect(*options); }; });
}

}  // namespace plendix
