// plendix: the command. Subcommands register themselves; status goes to stderr, data to stdout.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "camera/camera_command.h"
#include "decode/decode_command.h"
#include "demo/demo_command.h"
#include "field/capture_command.h"
#include "field/inspect_command.h"
#include "field/replay_command.h"
#include "host/process_state.h"
#include "host/signals.h"
#include "live/snapshot_command.h"
#include "live/stream_command.h"
#include "nearest_word.h"
#include "probe/probe_command.h"
#include "record/config_command.h"
#include "record/export_command.h"
#include "record/record_command.h"
#include "record/search_command.h"
#include "usage.h"
#ifdef PLENDIX_SERVE
#include "demo/serve_demo.h"
#include "http/password_command.h"
#include "serve/serve_command.h"
#endif

namespace {

std::string list_of(const std::vector<std::string>& words) {
    std::string list;
    for (const auto& word : words)
        list += (list.empty() ? "" : &word == &words.back() ? " or " : ", ") + word;
    return list;
}

/// Commands come before their options, and some have commands of their own. Throws UsageError at
/// the first word in such a place that is none.
void require_known_commands(const CLI::App& app, int argc, char** argv) {
    const CLI::App* level = &app;
    for (int i = 1; i < argc && argv[i][0] != '-'; ++i) {
        std::vector<std::string> names;
        for (const CLI::App* command : level->get_subcommands([](const CLI::App*) { return true; }))
            names.push_back(command->get_name());
        if (names.empty()) return;  // what follows are its values
        const std::string word = argv[i];
        if (std::find(names.begin(), names.end(), word) == names.end()) {
            const std::string near = plendix::nearest_word(word, names);
            throw plendix::UsageError(
                "'" + word + "' is no command: " +
                (near.empty() ? "give " + list_of(names) : "did you mean '" + near + "'?"));
        }
        level = level->get_subcommand(word);
    }
}

int run(int argc, char** argv) {
    CLI::App app{"Plendix: a driver for network cameras, with a reference host and simulated cameras."};
    app.require_subcommand(1);
    app.set_version_flag("--version", "plendix " PLENDIX_VERSION, "Print the version and exit");
    app.footer("Exit codes: 0 done, 1 failed, 2 wrong usage. 'plendix COMMAND --help' tells more.");

    std::function<int()> chosen;
    plendix::add_demo_command(app, chosen);
    plendix::add_probe_command(app, chosen);
    plendix::add_record_command(app, chosen);
    plendix::add_config_command(app, chosen);
    plendix::add_search_command(app, chosen);
    plendix::add_export_command(app, chosen);
    plendix::add_snapshot_command(app, chosen);
    plendix::add_stream_command(app, chosen);
    plendix::add_capture_command(app, chosen);
    plendix::add_inspect_command(app, chosen);
    plendix::add_decode_command(app, chosen);
    plendix::add_replay_command(app, chosen);
    plendix::add_camera_command(app, chosen);
#ifdef PLENDIX_SERVE
    plendix::add_password_command(app, chosen);
    plendix::add_serve_command(app, chosen, plendix::serve_demo_cameras);
#endif
    require_known_commands(app, argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error, std::cout, std::cerr);  // help, version
        throw plendix::UsageError(std::string(error.what()) + ": 'plendix COMMAND --help' tells more");
    }
    return chosen();
}

}  // namespace

int main(int argc, char** argv) {
    plendix::keep_standard_descriptors();
    plendix::ignore_broken_pipes();
    try {
        return run(argc, argv);
    } catch (const plendix::UsageError& error) {
        std::cerr << "plendix: " << error.what() << '\n';
        return plendix::exit_usage;
    } catch (const std::exception& error) {
        std::cerr << "plendix: " << error.what() << '\n';
        return plendix::exit_failed;
    }
}
