#include "camera/camera_command.h"

extern "C" {
#include <libavutil/log.h>
}

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

#include "camera/camera_options.h"
#include "camera/counters_report.h"
#include "camera/fleet.h"
#include "usage.h"

namespace plendix {

namespace {

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
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {  // a process that was stopped and continued is interrupted
            const double left = std::max(std::chrono::duration<double>(end - Clock::now()).count(), 0.0);
            std::timespec limit{};
            limit.tv_sec = static_cast<std::time_t>(left);
            limit.tv_nsec = static_cast<long>((left - static_cast<double>(limit.tv_sec)) * 1e9);
            if (sigtimedwait(&signals_, nullptr, &limit) >= 0 || errno != EINTR) return;
        }
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

std::string describe(const camera::Config& config) {
    return "model " + std::to_string(config.model) + ", firmware " + std::to_string(config.firmware) +
           ", sensor " + std::to_string(config.sensor_width) + 'x' + std::to_string(config.sensor_height);
}

void announce(const CameraOptions& options, const std::vector<camera::Config>& configs) {
    const bool same =
        options.models.size() == 1 && options.firmwares.size() == 1 && options.sensors.size() == 1;
    if (configs.size() == 1) {
        std::cerr << "camera " << configs[0].address << " port 69: " << describe(configs[0]);
    } else {
        std::cerr << configs.size() << " cameras " << configs.front().address << " to "
                  << configs.back().address
                  << " port 69: " << (same ? describe(configs[0]) : "different models, firmware or sensors");
    }
    std::cerr << "; Ctrl-C ends " << (configs.size() == 1 ? "it" : "them") << '\n';
}

int run_camera(const CameraOptions& options) {
    const std::vector<camera::Config> configs = make_configs(options);
    const camera::Behaviour behaviour = make_behaviour(options);
    const StopSignals signals;
    av_log_set_level(AV_LOG_QUIET);  // what is wrong with a scene file is told in one line
    const auto log = [](const std::string& line) { std::cerr << line + '\n'; };
    camera::Fleet fleet(configs, behaviour, log, options.verbose);
    fleet.start();
    announce(options, configs);
    signals.wait(options.duration);
    fleet.stop();
    std::vector<CameraCounters> counters;
    for (std::size_t i = 0; i < configs.size(); ++i)
        counters.push_back({configs[i].address, fleet.counters(i)});
    (options.json ? print_counters_json : print_counters)(std::cout, counters);
    return exit_done;
}

void add_identity(CLI::App& command, CameraOptions& options) {
    command
        .add_option("--address", options.address, "Address that the camera, or the first of them, answers on")
        ->capture_default_str();
    command.add_option("--count", options.count, "Cameras, on consecutive addresses: 1 to 255")
        ->capture_default_str();
    command
        .add_option("--model", options.models,
                    "Model number; its last two digits say what it can do. A list is dealt out to the "
                    "cameras in turn, here and below")
        ->delimiter(',')
        ->capture_default_str();
    command.add_option("--firmware", options.firmwares, "Firmware version, or a list")
        ->delimiter(',')
        ->capture_default_str();
    command.add_option("--sensor", options.sensors, "Sensor size in pixels, WIDTHxHEIGHT, or a list")
        ->delimiter(',')
        ->capture_default_str();
    command.add_option("--mac", options.mac,
                       "MAC address of the first camera, the others count on; made from the address when not "
                       "given");
    command.add_option("--registers", options.registers, "Start values, NUMBER=VALUE, such as 2=99,111=7")
        ->delimiter(',');
}

void add_working(CLI::App& command, CameraOptions& options) {
    command.add_option(
        "--scene", options.scene,
        "Picture or video file to show in a loop, scaled to the sensor; without it a generated "
        "scene, with camera number and clock where there are 4 cameras or less");
    command.add_option("--trigger", options.trigger, "Change the trigger input once per period, such as 5s");
    command.add_option("--rate", options.rate_mbit, "Mbit/s that one camera sends at most, 0 without limit")
        ->capture_default_str();
    command
        .add_option("--burst", options.burst, "Blocks sent without waiting for acknowledgements, 1 to 256")
        ->capture_default_str();
    command
        .add_option("--max-fps", options.max_fps,
                    "Pictures per second of one camera at most, 0 without limit")
        ->capture_default_str();
    command.add_option("--faults", options.faults,
                       "Faults of all cameras from the start, such as loss=1%,reorder=0.5%,silent=0.1%/15s");
    command.add_option("--scenario", options.scenario,
                       "File of faults, a line each: time, cameras, fault, value, such as '10s 7-9 loss 2%', "
                       "'20s 7 silent 15s', '60s * reboot'");
    command.add_option("--seed", options.seed, "Of all that is left to chance; the same seed repeats it")
        ->capture_default_str();
    command.add_option("--duration", options.duration, "Seconds to run, 0 until Ctrl-C")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str();
    command.add_flag("-v,--verbose", options.verbose,
                     "A line for each request and fault, not only for writes");
    command.add_flag("--json", options.json, "Counters at the end as JSON");
}

}  // namespace

void add_camera_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<CameraOptions>();
    CLI::App* command = app.add_subcommand("camera",
                                           "Run simulated cameras: registers, a trigger input, a relay, and "
                                           "JPEG and H.264 pictures of a scene, by TFTP on port 69.");
    add_identity(*command, *options);
    add_working(*command, *options);
    command->footer(
        "Lines about requests go to stderr; the counters go to stdout at the end.\n"
        "Faults: loss, ack-loss, duplicate, reorder, delay, corrupt, truncate, garbage, foreign, "
        "wrong-block,\n"
        "no-oack, oack-512, error, silent, reboot, mac-change.\n"
        "Port 69 needs root, CAP_NET_BIND_SERVICE, or a network namespace ('unshare -rn').\n"
        "Exit codes: 1 an address cannot be bound or the scene cannot be read, 2 wrong usage.\n\n"
        "Examples:\n"
        "  plendix camera --address 127.0.1.7 --sensor 1280x1024 -v &\n"
        "  curl --tftp-blksize 1450 -o frame 'tftp://127.0.1.7/image%3Fres=full;quality=8;'\n"
        "  plendix camera --count 255 --scene street.mp4 --faults loss=0.1% --seed 7");
    command->callback([options, &chosen] { chosen = [options] { return run_camera(*options); }; });
}

}  // namespace plendix
