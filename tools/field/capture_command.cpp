#include "field/capture_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "field/capture_run.h"
#include "host/command_values.h"
#include "host/words.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_cameras = 255;
constexpr std::uint64_t usual_ring = std::uint64_t{8} << 30U;
constexpr std::uint64_t least_ring = 1U << 20U;
constexpr double part_of_disk = 0.9;

struct CommandLine {
    std::vector<std::string> addresses;
    std::string output, interface = "any";
    std::optional<std::string> ring, ring_size, duration;
    bool until_silent = false, no_pictures = false;
};

std::vector<std::string> cameras_of(const CommandLine& line) {
    if (line.addresses.empty())
        throw UsageError("no camera: give addresses, as in 'plendix capture 192.168.1.20 -o field.pcapng'");
    if (line.addresses.size() > most_cameras)
        throw UsageError(std::to_string(line.addresses.size()) + " cameras are too many: 255 at most");
    std::vector<std::string> cameras;
    for (const std::string& address : line.addresses) {
        if (std::find(cameras.begin(), cameras.end(), parse_address(address)) != cameras.end())
            throw UsageError("address " + address + " is given twice");
        cameras.push_back(address);
    }
    return cameras;
}

/// What is asked for, or as much as is usual, but no more than the disk has.
std::uint64_t ring_bytes(const CommandLine& line) {
    std::error_code unknown;
    const auto folder = std::filesystem::absolute(line.output).parent_path();
    const auto free = std::filesystem::space(folder, unknown).available;
    const auto room = static_cast<std::uint64_t>(static_cast<double>(free) * part_of_disk);
    if (!line.ring_size) return unknown ? usual_ring : std::min(usual_ring, room);
    const std::uint64_t bytes = parse_bytes(*line.ring_size);
    if (bytes < least_ring)
        throw UsageError("ring-size is " + std::to_string(bytes) + " bytes: give a unit, as in 2G");
    if (!unknown && bytes > room)
        throw Failure("a ring of " + byte_words(bytes) + " finds no room: the disk of '" + folder.string() +
                      "' has " + byte_words(free));
    return bytes;
}

void take_ring(const CommandLine& line, CapturePlan& plan) {
    if (!line.ring) {
        if (line.ring_size) throw UsageError("--ring-size is of a --ring, which is not given");
        return;
    }
    plan.ring = parse_duration(*line.ring);
    if (plan.ring.count() == 0)
        throw UsageError("ring '" + *line.ring + "' keeps nothing: give a time, as in 10m");
    if (plan.output == "-") throw UsageError("a ring is written when it ends: give a file, not '-'");
    plan.ring_bytes = ring_bytes(line);
}

CapturePlan plan_of(const CommandLine& line) {
    CapturePlan plan;
    plan.addresses = cameras_of(line);
    if (line.output.empty()) throw UsageError("no file: give one, as in '-o field.pcapng'");
    plan.output = line.output;
    if (plan.output == "-" && isatty(STDOUT_FILENO) == 1)
        throw UsageError("a capture is nothing for a terminal: give a file, or a pipe to another program");
    plan.interface = line.interface;
    take_ring(line, plan);
    if (line.duration) plan.duration = parse_duration(*line.duration);
    plan.until_silent = line.until_silent;
    plan.pictures = !line.no_pictures;
    return plan;
}

void add_options(CLI::App& command, CommandLine& line) {
    command.add_option("camera", line.addresses, "IPv4 addresses, up to 255");
    command.add_option("-o,--output", line.output, "the file, pcapng; - is standard output")
        ->type_name("FILE");
    command.add_option("--interface", line.interface,
                       "where to listen; without it any, which is all of them");
    command.add_option("--ring", line.ring,
                       "keep only the last so much, as in 10m, in files beside the output, and write that "
                       "when it ends");
    command.add_option("--ring-size", line.ring_size,
                       "keep no more than so much, as in 2G; without it 8G, or nine tenths of what the disk "
                       "has left");
    command.add_flag("--until-silent", line.until_silent, "end 20 s after a camera has stopped to answer");
    command.add_option("--duration", line.duration, "how long, as in 90s, 10m, 12h; without it until Ctrl-C");
    command.add_flag("--no-pictures", line.no_pictures,
                     "of pictures keep the packets' headers and the trailer only: MAC address, area, "
                     "quality and motion");
}

}  // namespace

void add_capture_command(CLI::App& app, std::function<int()>& chosen) {
    const auto line = std::make_shared<CommandLine>();
    CLI::App* command = app.add_subcommand("capture", "Keep what cameras and driver say to each other");
    command->description(
        "Captures the datagrams between cameras and whoever asks them, for 'plendix inspect' and\n"
        "'plendix replay', or for Wireshark. The file contains pictures unless told otherwise, and can\n"
        "be read even when this command was killed. Where the driver runs on this machine, too, comments\n"
        "of packets tell what its sockets dropped.");
    command->footer(
        "Examples:\n"
        "  plendix capture 192.168.1.20 -o field.pcapng             until Ctrl-C\n"
        "  plendix capture 192.168.1.20 192.168.1.21 -o night.pcapng --ring 10m --until-silent\n"
        "  plendix capture 192.168.1.20 -o - --no-pictures | wireshark -k -i -\n"
        "Needs the right to capture: root, or once 'setcap cap_net_raw+ep $(command -v plendix)'. Nothing "
        "is\n"
        "written over. What happens goes to standard error. Exit code 1: it could not begin, or ended "
        "early.");
    add_options(*command, *line);
    command->callback([line, &chosen] { chosen = [line] { return capture(plan_of(*line)); }; });
}

}  // namespace plendix
