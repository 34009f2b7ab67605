#include "serve/serve_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "host/command_values.h"
#include "host/named_cameras.h"
#include "record/config_file.h"
#include "serve/serve_plan.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

struct CommandLine {
    std::vector<std::string> addresses;
    std::string config, listen = "127.0.0.1:8069", state, plugin, recordings;
    bool demo = false, quiet = false, verbose = false;
    double thumbnails = 50;  // percent of a processor
    std::string duration;
    GuardOptions guard;
    std::string certificate, key;
};

void require_one_source(const CommandLine& line) {
    const int sources =
        (line.addresses.empty() ? 0 : 1) + (line.config.empty() ? 0 : 1) + (line.demo ? 1 : 0);
    if (sources == 1 || (sources == 0 && !line.recordings.empty())) return;
    throw UsageError(sources == 0
                         ? "no camera: give addresses, as in 'plendix serve 192.168.1.20', --config, "
                           "--demo or --recordings"
                         : "addresses, --config and --demo do not go together: give one of them");
}

void take_config(const std::string& file, HousePlan& house, ServePlan& plan) {
    const RecorderConfig config = read_config(file);
    house.cameras = config.cameras;
    house.plugin = config.options.plugin;
    house.records = config.records;
    house.output = fs::absolute(config.options.output);
    house.rules = rules_of(config.options);
    if (house.records) {
        house.state = config.options.state.empty() ? house.output : fs::absolute(config.options.state);
        plan.scratch = false;
    }
    const fs::path again = fs::absolute(file);  // it works in another folder by then
    house.reload = [again] { return read_config(again).cameras; };
}

void take_recordings(const std::string& folder, bool demo, HousePlan& house) {
    if (house.records || demo)
        throw UsageError("--recordings '" + folder +
                         "' is for a process that records nothing itself: this one shows what it records");
    if (!fs::is_directory(folder)) throw UsageError("--recordings '" + folder + "' is no folder");
    house.recordings = fs::absolute(folder);
}

ServePlan plan_of(const CommandLine& line, const std::string& version, const DemoCameras& demo) {
    require_one_source(line);
    ServePlan plan;
    plan.version = version;
    plan.house.screen = screen_options(STDERR_FILENO);
    if (!line.config.empty()) take_config(line.config, plan.house, plan);
    if (!line.addresses.empty()) plan.house.cameras = named_cameras(line.addresses);
    if (line.demo) plan.prepare = demo;
    if (!line.recordings.empty()) take_recordings(line.recordings, line.demo, plan.house);
    if (!line.plugin.empty()) plan.house.plugin = fs::absolute(line.plugin);
    if (!line.state.empty()) {
        plan.house.state = fs::absolute(line.state);
        plan.scratch = false;
    }
    if (!line.duration.empty()) plan.house.duration = parse_duration(line.duration);
    plan.house.screen.quiet = line.quiet;
    plan.house.screen.verbose = line.verbose;
    plan.house.thumbnail_share = line.thumbnails / 100;
    plan.server.listen = parse_listen_address(line.listen);
    if (!line.certificate.empty()) {  // read when it works in another folder
        plan.server.tls_certificate = fs::absolute(line.certificate);
        plan.server.tls_key = fs::absolute(line.key);
    }
    plan.guard = line.guard;
    plan.guard.listen = plan.server.listen;
    plan.guard.tls = !line.certificate.empty();
    return plan;
}

void add_camera_options(CLI::App& command, CommandLine& line) {
    command.add_option("camera", line.addresses, "IPv4 addresses; the first is camera 1 and so on");
    command
        .add_option(
            "--config", line.config,
            "cameras from a file, as for 'plendix record', read again at SIGHUP; with a [record] table "
            "in it they are recorded, too")
        ->type_name("FILE");
    command.add_flag("--demo", line.demo, "two simulated cameras, to look at the page without one");
    command
        .add_option(
            "--recordings", line.recordings,
            "shows and plays the recordings below this folder, made by 'plendix record'; needs no camera")
        ->type_name("FOLDER");
    command.add_option("--state", line.state,
                       "folder for the driver's settings and log and for changes made in the page, which are "
                       "in force again at the next start; without it that of the recording, or none");
    command.add_option("--plugin", line.plugin, "the plug-in to load; without it as for 'plendix record'");
    command.add_option("--thumbnail-cpu", line.thumbnails, "percent of a processor that thumbnails may take")
        ->check(CLI::Range(1, 800))
        ->capture_default_str();
    command.add_option("--duration", line.duration, "how long, as in 10m; without it until Ctrl-C");
    auto* quiet = command.add_flag("--quiet", line.quiet, "tell of troubles only");
    command.add_flag("--verbose", line.verbose, "tell the driver's own words, too")->excludes(quiet);
}

void add_http_options(CLI::App& command, CommandLine& line) {
    command
        .add_option(
            "--listen", line.listen,
            "address and port; any but this machine's own needs --password-file or --token-file, and TLS")
        ->capture_default_str();
    command.add_option("--host-name", line.guard.host_names,
                       "further names by which browsers reach this server");
    command.add_option("--password-file", line.guard.password_file,
                       "who may log in, lines as 'plendix password NAME' prints them");
    command.add_option("--token-file", line.guard.token_file,
                       "tokens of programs, one a line: 'Authorization: Bearer TOKEN'");
    auto* certificate =
        command.add_option("--tls-cert", line.certificate, "certificate for HTTPS, a PEM file");
    auto* key = command.add_option("--tls-key", line.key, "its key, a PEM file")->needs(certificate);
    certificate->needs(key);
    command.add_flag("--insecure", line.guard.insecure,
                     "without TLS on a network: passwords and pictures can be read there");
}

}  // namespace

void add_serve_command(CLI::App& app, std::function<int()>& chosen, const DemoCameras& demo) {
    const auto line = std::make_shared<CommandLine>();
    CLI::App* command = app.add_subcommand("serve", "See every camera, and steer it, in a browser");
    command->description(
        "Loads the plug-in as a recorder host does and serves a page: all cameras, each one large with the\n"
        "motion in it, its settings, how it does, and recordings. Programs get the same over HTTP: JSON,\n"
        "pictures, live streams, events, metrics.");
    command->footer(
        "Examples:\n"
        "  plendix serve --demo                       then open http://127.0.0.1:8069/\n"
        "  plendix serve 192.168.1.20 192.168.1.21\n"
        "  plendix serve --config /etc/plendix/recorder.toml --listen 0.0.0.0:8069 \\\n"
        "      --password-file /etc/plendix/passwords --tls-cert cert.pem --tls-key key.pem\n"
        "  curl -o door.jpg http://127.0.0.1:8069/camera/1.jpg\n"
        "  mpv http://127.0.0.1:8069/camera/1.mkv\n"
        "The page's address goes to standard output, what happens to standard error. Exit codes: 0 asked\n"
        "to end, 1 failed, 2 wrong usage.");
    add_camera_options(*command, *line);
    add_http_options(*command, *line);
    const std::string version = app.version().substr(app.version().rfind(' ') + 1);
    command->callback([line, version, demo, &chosen] {
        chosen = [line, version, demo] { return serve(plan_of(*line, version, demo)); };
    });
}

}  // namespace plendix
