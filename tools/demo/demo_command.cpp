#include "demo/demo_command.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "camera/fleet.h"
#include "camera/wire/privilege.h"
#include "host/command_values.h"
#include "host/session.h"
#include "record/recording.h"
#include "usage.h"

namespace plendix {
namespace {

using std::chrono::milliseconds;

struct DemoOptions {
    double seconds = 10;
    std::string address = "127.0.69.1";
    std::string output = "plendix-demo";
    std::string plugin;
    std::string faults;
    std::uint64_t seed = 1;
};

/// The two addresses: never those of a network where real cameras may be.
std::array<std::string, 2> addresses_from(const std::string& first) {
    constexpr std::uint32_t lowest = 0x7F000001;
    constexpr std::uint32_t highest = 0x7FFFFFFD;
    in_addr address{};
    const bool read = inet_pton(AF_INET, first.c_str(), &address) == 1;
    const std::uint32_t number = ntohl(address.s_addr);
    if (!read || number < lowest || number > highest)
        throw UsageError("--address '" + first + "' is not from 127.0.0.1 to 127.255.255.253");
    address.s_addr = htonl(number + 1);
    std::array<char, INET_ADDRSTRLEN> second{};
    inet_ntop(AF_INET, &address, second.data(), second.size());
    return {first, second.data()};
}

std::vector<camera::Config> simulated_cameras(const DemoOptions& options) {
    const auto addresses = addresses_from(options.address);
    camera::Config jpeg;
    jpeg.address = addresses[0];
    jpeg.number = 1;
    camera::Config h264;
    h264.address = addresses[1];
    h264.number = 2;
    h264.sensor_width = 1920;
    h264.sensor_height = 1088;
    return {jpeg, h264};
}

std::vector<CameraSettings> settings_of(const std::vector<camera::Config>& cameras) {
    std::vector<CameraSettings> settings;
    for (const auto& simulated : cameras) {
        CameraSettings camera;
        camera.number = static_cast<int>(simulated.number);
        camera.address = simulated.address;
        camera.name = "Demo camera " + std::to_string(simulated.number);
        camera.codec = camera.number == 1 ? Codec::jpeg : Codec::h264;
        settings.push_back(camera);
    }
    return settings;
}

/// The trigger input of camera 1 closes and opens, then its relay does the same, and the frames
/// of camera 2 are marked as recorded for a while. All within the run, whatever its length.
std::vector<RecordingStep> happenings(camera::Fleet& fleet, milliseconds duration) {
    constexpr int action = 1;
    return {
        {duration * 2 / 10, [&fleet](Session&) { fleet.set_trigger(0, true); }},
        {duration * 3 / 10, [](auto& plugin) { plugin.write(recording_document(2, action, true)); }},
        {duration * 4 / 10, [](auto& plugin) { plugin.write(relay_document(1, action, true)); }},
        {duration * 5 / 10, [&fleet](Session&) { fleet.set_trigger(0, false); }},
        {duration * 6 / 10, [](auto& plugin) { plugin.write(recording_document(2, action, false)); }},
        {duration * 7 / 10, [](auto& plugin) { plugin.write(relay_document(1, action, false)); }},
    };
}

RecordingPlan plan_of(const DemoOptions& options, const std::vector<camera::Config>& cameras) {
    RecordingPlan plan;
    plan.plugin = options.plugin;
    plan.output = options.output;
    plan.duration = parse_seconds(options.seconds);
    if (plan.duration < milliseconds(1)) throw UsageError("--seconds 0 shows nothing: 10 is a good length");
    plan.cameras = settings_of(cameras);
    plan.rules.replace = true;
    plan.check = plan.rules.remember_files = true;
    plan.screen = screen_options(STDERR_FILENO);
    plan.faults_expected = !options.faults.empty();
    return plan;
}

camera::Behaviour behaviour_of(const DemoOptions& options) {
    camera::Behaviour behaviour;
    try {
        behaviour.faults = camera::parse_faults(options.faults);
    } catch (const UsageError& error) {
        throw UsageError(std::string("--faults: ") + error.what());
    }
    behaviour.seed = options.seed;
    return behaviour;
}

/// The cameras' side of the story, to set beside the table.
void tell(const camera::Fleet& fleet) {
    for (std::size_t i = 0; i < fleet.size(); ++i) {
        const camera::Counters counters = fleet.counters(i);
        std::cerr << "simulated camera " << i + 1 << ": asked for " << counters.pictures << " pictures, sent "
                  << counters.frames << ", lost " << counters.frames_lost << " by faults, "
                  << counters.pictures - counters.frames - counters.frames_lost << " unfinished";
        for (std::size_t kind = 0; kind < counters.faults.size(); ++kind)
            if (counters.faults[kind] > 0)
                std::cerr << "; " << fault_name(static_cast<camera::FaultKind>(kind)) << ' '
                          << counters.faults[kind];
        std::cerr << '\n';
    }
}

int demo(const DemoOptions& options) {
    const std::vector<camera::Config> cameras = simulated_cameras(options);
    RecordingPlan plan = plan_of(options, cameras);
    const camera::Behaviour behaviour = behaviour_of(options);
    // Before the fleet starts its thread. Where it fails, the fleet tells the ways out.
    camera::enter_private_network({cameras[0].address, cameras[1].address});
    camera::Fleet fleet(cameras, behaviour);
    plan.steps = happenings(fleet, plan.duration);
    fleet.start();
    std::cerr << "two simulated cameras on " << cameras[0].address << " (JPEG) and " << cameras[1].address
              << " (H.264)\n";
    const int result = record(plan);
    fleet.stop();
    tell(fleet);
    return result;
}

}  // namespace

void add_demo_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<DemoOptions>();
    CLI::App* command = app.add_subcommand("demo", "Record two simulated cameras and check every frame");
    command->description(
        "Runs two simulated cameras on loopback addresses, one JPEG and one H.264, loads the\n"
        "plug-in as a recorder host does and records both. On the way a trigger input closes, a\n"
        "relay is driven and frames are marked as recorded, so that all events are seen. Then\n"
        "every recorded frame is decoded.");
    command->footer(
        "Example:\n"
        "  plendix demo --seconds 5 --output /tmp/demo\n"
        "The cameras answer on port 69, which needs root or a system that lets users have network\n"
        "namespaces of their own; there they run too where something else has that port. Exit code 0:\n"
        "both cameras delivered, and every frame decoded without an error (with --faults: the files\n"
        "are whole). An earlier demo's files are overwritten.");
    command->add_option("--seconds", options->seconds, "length of the recording")->capture_default_str();
    command
        ->add_option("--address", options->address,
                     "loopback address of the JPEG camera; the H.264 camera has the next one")
        ->capture_default_str();
    command->add_option("--output", options->output, "folder of the recording")->capture_default_str();
    command->add_option("--plugin", options->plugin,
                        "the plug-in to load; without it as for 'plendix record'");
    command->add_option("--faults", options->faults,
                        "faults of both cameras, such as loss=0.1%,reorder=0.1%,silent=0.1%/12s; see "
                        "'plendix camera --help'");
    command->add_option("--seed", options->seed, "of the faults; the same seed repeats them")
        ->capture_default_str();
    command->callback([options, &chosen] { chosen = [options] { return demo(*options); }; });
}

}  // namespace plendix
