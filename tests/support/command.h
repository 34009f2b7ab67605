// The built command as a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace plendix::camera::test {

inline std::string text(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Starts the built command, with the descriptor `output` (or none) as its standard ones, or `error` for
/// that.
inline pid_t start_command(std::vector<std::string> words, int output, int error = -1) {
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    for (int standard = 0; standard < 3; ++standard) {
        if (output < 0) posix_spawn_file_actions_addclose(&actions, standard);
        if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, standard);
    }
    if (error >= 0) posix_spawn_file_actions_adddup2(&actions, error, STDERR_FILENO);
    pid_t child = -1;
    EXPECT_EQ(posix_spawn(&child, PLENDIX_COMMAND, &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

inline int exit_code(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace plendix::camera::test
