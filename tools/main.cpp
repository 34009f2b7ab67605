// plendix: the command. Subcommands register themselves; status goes to stderr, data to stdout.
#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>

#include "camera/camera_command.h"
#include "demo/demo_command.h"
#include "record/export_command.h"
#include "record/record_command.h"
#include "record/search_command.h"
#include "usage.h"

namespace {

int run(int argc, char** argv) {
    CLI::App app{"Plendix: a driver for network cameras, with a reference host and simulated cameras."};
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 failed, 2 wrong usage. 'plendix COMMAND --help' tells more.");

    std::function<int()> chosen;
    plendix::add_demo_command(app, chosen);
    plendix::add_record_command(app, chosen);
    plendix::add_search_command(app, chosen);
    plendix::add_export_command(app, chosen);
    plendix::add_camera_command(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error, std::cout, std::cerr);
        return code == 0 ? plendix::exit_done : plendix::exit_usage;
    }
    return chosen();
}

}  // namespace

int main(int argc, char** argv) {
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
