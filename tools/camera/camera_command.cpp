#include "camera/camera_command.h"

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <regex>
#include <string>

#include "camera/fleet.h"
#include "usage.h"

namespace plendix {

namespace {

struct CameraOptions {
    std::string address = "127.0.1.1";
    std::uint16_t model = camera::Config{}.model, firmware = camera::Config{}.firmware;
    std::string sensor = "1600x1200";
    std::string mac;
    double duration = 0;  // seconds, 0 without end
    bool verbose = false;
};

void parse_sensor(const std::string& text, camera::Config& config) {
    std::smatch sides;
    if (std::regex_match(text, sides, std::regex("([0-9]{2,4})x([0-9]{2,4})"))) {
        config.sensor_width = static_cast<unsigned>(std::stoul(sides[1]));
        config.sensor_height = static_cast<unsigned>(std::stoul(sides[2]));
        const auto fits = [](unsigned side) { return side >= 16 && side <= 8192; };
        if (fits(config.sensor_width) && fits(config.sensor_height)) return;
    }
    throw UsageError("--sensor " + text +
                     ": expected WIDTHxHEIGHT with 16 to 8192 pixels, such as 1600x1200");
}

void parse_mac(const std::string& text, camera::Config& config) {
    static const std::regex form("([0-9A-Fa-f]{2}[-:]){5}[0-9A-Fa-f]{2}");
    if (!std::regex_match(text, form))
        throw UsageError("--mac " + text + ": expected six pairs of digits, such as 02-50-4C-00-01-01");
    for (std::size_t i = 0; i < config.mac.size(); ++i)
        config.mac[i] = static_cast<std::uint8_t>(std::stoul(text.substr(3 * i, 2), nullptr, 16));
}

camera::Config make_config(const CameraOptions& options) {
    camera::Config config;
    config.address = options.address;
    config.model = options.model;
    config.firmware = options.firmware;
    parse_sensor(options.sensor, config);
    if (!options.mac.empty()) parse_mac(options.mac, config);
    return config;
}

/// Holds back SIGINT and SIGTERM from now on, and waits for one of them. Requires that it exists
/// before other threads do.
class StopSignals {
public:
    StopSignals() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    ~StopSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    void wait(double seconds) const {
        if (seconds <= 0) {
            int signal = 0;
            sigwait(&signals_, &signal);
            return;
        }
        std::timespec limit{};
        limit.tv_sec = static_cast<std::time_t>(seconds);
        limit.tv_nsec = static_cast<long>((seconds - static_cast<double>(limit.tv_sec)) * 1e9);
        sigtimedwait(&signals_, nullptr, &limit);
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

void print_counters(const std::string& address, const camera::Counters& counters) {
    const std::array<std::pair<const char*, std::uint64_t>, 9> rows{
        {{"requests", counters.requests},
         {"register reads", counters.register_reads},
         {"register writes", counters.register_writes},
         {"frames", counters.frames},
         {"key frames", counters.key_frames},
         {"blocks", counters.blocks},
         {"bytes", counters.bytes},
         {"acknowledgements", counters.acknowledgements},
         {"errors", counters.errors}}};
    std::printf("%-18s %14s\n", "camera", address.c_str());
    for (const auto& [name, value] : rows)
        std::printf("%-18s %14llu\n", name, static_cast<unsigned long long>(value));
    std::fflush(stdout);
}

int run_camera(const CameraOptions& options) {
    const camera::Config config = make_config(options);
    const StopSignals signals;
    const auto log = [](const std::string& line) { std::cerr << line + '\n'; };
    camera::Fleet fleet({config}, log, options.verbose);
    fleet.start();
    std::cerr << "camera " << config.address << " port 69: model " << config.model << ", firmware "
              << config.firmware << ", sensor " << options.sensor << "; Ctrl-C ends it\n";
    signals.wait(options.duration);
    fleet.stop();
    print_counters(config.address, fleet.counters(0));
    return exit_done;
}

}  // namespace

void add_camera_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<CameraOptions>();
    CLI::App* command =
        app.add_subcommand("camera",
                           "Run a simulated camera: registers, a trigger input, a relay, and "
                           "JPEG and H.264 pictures of a generated scene, by TFTP on port 69.");
    command->add_option("--address", options->address, "Loopback address that the camera answers on")
        ->check(CLI::ValidIPV4)
        ->capture_default_str();
    command->add_option("--model", options->model, "Model number; its last two digits say what it can do")
        ->capture_default_str();
    command->add_option("--firmware", options->firmware, "Firmware version")->capture_default_str();
    command->add_option("--sensor", options->sensor, "Sensor size in pixels, WIDTHxHEIGHT")
        ->capture_default_str();
    command->add_option("--mac", options->mac, "MAC address; made from the address when not given");
    command->add_option("--duration", options->duration, "Seconds to run, 0 until Ctrl-C")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str();
    command->add_flag("-v,--verbose", options->verbose, "A line for each request, not only for writes");
    command->footer(
        "Lines about requests go to stderr; the counters go to stdout at the end.\n"
        "Port 69 needs root, CAP_NET_BIND_SERVICE, or a network namespace ('unshare -rn').\n\n"
        "Example:\n"
        "  plendix camera --address 127.0.1.7 --sensor 1280x1024 -v &\n"
        "  curl --tftp-blksize 1450 -o frame 'tftp://127.0.1.7/image%3Fres=full;quality=8;'");
    command->callback([options, &chosen] { chosen = [options] { return run_camera(*options); }; });
}

}  // namespace plendix
