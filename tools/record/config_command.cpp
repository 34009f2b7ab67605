#include "record/config_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include "host/words.h"
#include "record/config_file.h"
#include "record/config_probe.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds patience{15};

struct ConfigOptions {
    std::string file;
    std::string plugin;
};

std::string duration_words(std::chrono::milliseconds time) {
    return span_words(std::chrono::duration_cast<std::chrono::seconds>(time));
}

/// What was understood, for people to see a unit that they forgot.
int check(const ConfigOptions& options) {
    const RecorderConfig config = read_config(options.file);
    const std::size_t count = config.cameras.size();
    const auto off = std::count_if(config.cameras.begin(), config.cameras.end(),
                                   [](const CameraSettings& camera) { return !camera.enabled; });
    const RecordOptions& record = config.options;
    std::cout << options.file << ": " << count << (count == 1 ? " camera" : " cameras");
    if (off > 0) std::cout << ", " << off << " switched off";
    if (record.segment.count() > 0) std::cout << ", segments of " << duration_words(record.segment);
    if (record.keep.count() > 0) std::cout << ", kept for " << duration_words(record.keep);
    if (record.keep_size > 0)
        std::cout << ", at most " << byte_words(record.keep_size) << (record.keep_per_camera ? " each" : "");
    std::cout << '\n';
    return exit_done;
}

std::string identity(const ReportedCamera& camera) {
    return "model " + std::to_string(camera.model) + ", firmware " + std::to_string(camera.firmware) + ", " +
           camera.serial;
}

/// What there is to remark of a camera that was to stream; empty when it is as it should be.
std::string fault(const ProbedCamera& camera) {
    const ReportedCamera& report = camera.report;
    if (report.model == 0) return "no answer: as configured";
    if (!report.settings.enabled) return "not supported, as configured: " + identity(report);
    return camera.settled ? "" : "no picture, as configured: " + identity(report);
}

int show(const ConfigOptions& options) {
    RecorderConfig config = read_config(options.file);
    if (!options.plugin.empty()) config.options.plugin = options.plugin;
    std::map<int, ProbedCamera> probed;
    for (const auto& camera : probe_cameras(config.options.plugin, config.cameras, patience))
        probed[camera.report.settings.number] = camera;
    std::map<int, std::string> remarks;
    bool good = true;
    for (auto& camera : config.cameras) {
        const ProbedCamera& found = probed[camera.number];
        const std::string remark = camera.enabled ? fault(found) : "switched off: as configured";
        good = good && (!camera.enabled || remark.empty());
        if (remark.empty()) camera = found.report.settings;
        remarks[camera.number] = remark.empty() ? identity(found.report) : remark;
    }
    std::cout << config_text(config.cameras, remarks) << std::flush;
    return good ? exit_done : exit_failed;
}

}  // namespace

void add_config_command(CLI::App& app, std::function<int()>& chosen) {
    const auto options = std::make_shared<ConfigOptions>();
    CLI::App* command =
        app.add_subcommand("config", "Check a configuration file, show what cameras make of it");
    command->require_subcommand(1);
    CLI::App* checking =
        command->add_subcommand("check", "Read a configuration file and tell its first mistake");
    checking->footer(
        "Prints the number of cameras. Exit code 2: a mistake, with its line and what would be right.");
    checking->add_option("file", options->file, "configuration file, as for 'plendix record --config'")
        ->required();
    checking->callback([options, &chosen] { chosen = [options] { return check(*options); }; });

    CLI::App* showing =
        command->add_subcommand("show", "Configure the cameras and print what they have then");
    showing->footer(
        "Loads the plug-in, configures the cameras of the file, waits 15 seconds at most until they send\n"
        "pictures, and prints what the driver reports of them in the form of a configuration file. Records\n"
        "nothing. A camera that sends none stands there as the file has it, below a comment. Exit code 1:\n"
        "there is such a camera.");
    showing->add_option("file", options->file, "configuration file")->required();
    showing->add_option("--plugin", options->plugin,
                        "the plug-in to load; without it as for 'plendix record'");
    showing->callback([options, &chosen] { chosen = [options] { return show(*options); }; });
}

}  // namespace plendix
