// What every subcommand of the plendix command agrees on: exit codes and how errors travel.
#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace plendix {

enum ExitCode { exit_done = 0, exit_failed = 1, exit_usage = 2 };

/// A value from the command line that cannot be used. The text is one line that names the
/// value and says what would be right; main prints it to stderr and exits with exit_usage.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Anything else that ends a command early. The text is one line; exit code exit_failed.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The system's words for an errno value.
inline std::string error_text(int error) {
    return std::generic_category().message(error);
}

}  // namespace plendix
