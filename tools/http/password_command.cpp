#include "http/password_command.h"

#include <termios.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "http/password_file.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t shortest_password = 8;

/// What is typed is not shown while it lives.
class EchoOff {
public:
    EchoOff() {
        if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        changed_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
    }
    ~EchoOff() {
        if (changed_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    termios before_{};
    bool changed_ = false;
};

std::string typed(const char* prompt) {
    std::cerr << prompt << std::flush;
    std::string line;
    std::getline(std::cin, line);
    std::cerr << '\n';
    return line;
}

std::string asked_password() {
    const EchoOff echo_off;
    std::string password = typed("Password: ");
    if (typed("Again: ") != password) throw UsageError("the two passwords are not the same");
    return password;
}

std::string first_line() {
    std::string line;
    std::getline(std::cin, line);
    return line;
}

int print_line(const std::string& name) {
    check_user_name(name);
    const std::string password = isatty(STDIN_FILENO) == 1 ? asked_password() : first_line();
    if (password.size() < shortest_password)
        throw UsageError("a password has 8 bytes or more, and this one " + std::to_string(password.size()));
    std::cout << name << ':' << password_hash(password) << '\n' << std::flush;
    if (!std::cout) throw Failure("cannot write to standard output");
    return exit_done;
}

}  // namespace

void add_password_command(CLI::App& app, std::function<int()>& chosen) {
    const auto name = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("password", "Print a line for a password file");
    command->description(
        "Reads a password, twice from a terminal and without showing it, or the first line of standard\n"
        "input, and prints the line name:hash that 'plendix serve --password-file' wants of a user.");
    command->footer(
        "Example:\n"
        "  (umask 027; plendix password anna >> passwords)\n"
        "The hash is a yescrypt one with a salt of its own. Exit codes: 0 done, 1 failed, 2 wrong usage.");
    command->add_option("name", *name, "name to log in with, without a colon")->required();
    command->callback([name, &chosen] { chosen = [name] { return print_line(*name); }; });
}

}  // namespace plendix
