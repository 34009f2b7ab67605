#include "field/replay_command.h"

#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "field/replay_fleet.h"
#include "field/replay_report.h"
#include "host/command_values.h"
#include "host/signals.h"
#include "usage.h"

namespace plendix {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds linger{3000};  // behind the last picture, so that a client takes it; or a request
constexpr milliseconds look{100};     // at whether all is over

struct CommandLine {
    std::string file, address = "127.0.2.1";
    std::vector<std::string> cameras;
    std::optional<std::string> client, duration;
    bool no_delays = false, loop = false, stay = false, padded = false, json = false;
};

std::uint32_t address_from(const std::string& text) {
    return address_of(parse_address(text)).value_or(0);
}

ReplayWishes wishes_of(const CommandLine& line) {
    ReplayWishes wishes;
    for (const std::string& camera : line.cameras)
        wishes.cameras.push_back(address_from(camera));
    if (line.client) wishes.client = address_from(*line.client);
    return wishes;
}

/// Pictures that are not there are not played without being told to.
void require_pictures(const ReplayCapture& capture, bool padded) {
    std::size_t cut = 0, pictures = 0;
    for (const CapturedCamera& camera : capture.cameras()) {
        cut += camera.cut;
        pictures += camera.pictures;
    }
    if (cut == 0) return;
    const std::string words = std::to_string(cut) + " of " + std::to_string(pictures) +
                              " pictures are not whole in the capture (--no-pictures, a snapshot length or "
                              "fragments)";
    if (!padded) throw Failure(words + ": give --padded to play them with zeros in place of what is missing");
    std::cerr << words << ": zeros take the place of what is missing\n";
}

void announce(const ReplayCapture& capture, const std::string& file, std::uint32_t first) {
    if (!capture.remark().empty())
        std::cerr << "'" << file << "' is " << capture.remark() << ": what stands before is played\n";
    for (std::size_t i = 0; i < capture.cameras().size(); ++i)
        std::cerr << replay_line(capture.cameras()[i], first + static_cast<std::uint32_t>(i)) + '\n';
}

/// Until a signal, the given time, or some seconds behind the last picture or, without pictures, request.
void wait(const CommandLine& line, const ReplayFleet& fleet, const StopSignals& signals) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    auto end = Clock::time_point::max();
    if (line.duration) end = begin + parse_duration(*line.duration);
    while (!signals.requested() && Clock::now() < end) {
        signals.wait(look);
        const auto finished = line.stay ? std::nullopt : fleet.finished();
        if (finished && Clock::now() >= *finished + linger) return;
    }
}

/// What others recorded is for this machine: no network sees cameras that are none.
void require_own(std::uint32_t first) {
    if (first >> 24U != 127)
        throw UsageError("--address " + address_text(first) +
                         ": cameras are played to this machine alone, give one of 127.0.0.0/8");
}

void require_addresses(std::uint32_t first, std::size_t count) {
    constexpr std::uint32_t last = 0x7FFFFFFE;
    if (first > last || last - first < count - 1)
        throw UsageError("--address " + address_text(first) + ": " + std::to_string(count) +
                         " cameras want as many addresses from there on, as from 127.0.2.1");
}

/// Three sockets for each camera are more than most limits; what the system permits is taken.
void raise_descriptor_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int replay(const CommandLine& line) {
    const std::uint32_t first = address_from(line.address);
    require_own(first);
    if (line.duration) parse_duration(*line.duration);
    const ReplayCapture capture(line.file, wishes_of(line));
    require_addresses(first, capture.cameras().size());
    require_pictures(capture, line.padded);
    ReplayOptions options;
    options.delays = !line.no_delays;
    options.loop = line.loop;
    const StopSignals signals;
    raise_descriptor_limit();
    ReplayFleet fleet(capture, first, options, [](const std::string& text) { std::cerr << text + '\n'; });
    announce(capture, line.file, first);
    fleet.start();
    wait(line, fleet, signals);
    fleet.stop();
    std::vector<ReplayedCamera> cameras;
    for (std::size_t i = 0; i < capture.cameras().size(); ++i)
        cameras.push_back({&capture.cameras()[i], first + static_cast<std::uint32_t>(i), fleet.counts(i)});
    (line.json ? print_replay_json : print_replay)(std::cout, cameras);
    std::cout << std::flush;
    if (!std::cout) throw Failure("cannot write to standard output");
    return exit_done;
}

void add_options(CLI::App& command, CommandLine& line) {
    command.add_option("file", line.file, "capture: pcapng or pcap")->required();
    command
        .add_option("--address", line.address,
                    "of the first camera, one of 127.0.0.0/8; the others follow, as the capture's do")
        ->capture_default_str();
    command
        .add_option("--camera", line.cameras,
                    "address of a camera in the capture, may be repeated; without it all")
        ->allow_extra_args(false);
    command.add_option("--client", line.client,
                       "address of the client in the capture that the cameras answered; without it, for each "
                       "camera, the one with the most transfers");
    command.add_flag("--no-delays", line.no_delays,
                     "answer at once instead of after as long as in the capture");
    auto* loop = command.add_flag("--loop", line.loop,
                                  "begin again behind the last picture, H.264 at the first key frame");
    command
        .add_flag("--stay", line.stay,
                  "do not end some seconds behind the last picture; the cameras are "
                  "silent then")
        ->excludes(loop);
    command.add_flag("--padded", line.padded, "zeros in place of what the capture has not of the pictures");
    command.add_option("--duration", line.duration,
                       "how long, as in 90s, 10m; without it to the last picture");
    command.add_flag("--json", line.json, "what was played as JSON");
}

}  // namespace

void add_replay_command(CLI::App& app, std::function<int()>& chosen) {
    const auto line = std::make_shared<CommandLine>();
    CLI::App* command = app.add_subcommand("replay", "Play the cameras of a capture");
    command->description(
        "Makes cameras that answer as those in a capture did, with the same bytes and delays: a recorder\n"
        "that asks them gets the same pictures again, and the same troubles. Pictures come in the order of\n"
        "the capture, whatever is asked of them.");
    command->footer(
        "Examples:\n"
        "  plendix replay field.pcapng &                    its first camera is 127.0.2.1, port 69\n"
        "  plendix record 127.0.2.1 --output again\n"
        "  plendix replay field.pcapng --camera 10.0.0.7 --loop\n"
        "Who plays what goes to standard error, at the end a table of what was asked for to standard "
        "output.\n"
        "Ends 3 s behind the last picture of the last camera; where the capture has no pictures, 3 s behind\n"
        "the last request. Port 69 needs root, CAP_NET_BIND_SERVICE, or "
        "a\n"
        "network namespace ('unshare -rn'). Exit codes: 1 the capture cannot be played or an address cannot\n"
        "be had, 2 wrong usage.");
    add_options(*command, *line);
    command->callback([line, &chosen] { chosen = [line] { return replay(*line); }; });
}

}  // namespace plendix
