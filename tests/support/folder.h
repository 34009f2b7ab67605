// A working directory of a test's own.
#pragma once

#include <cstdlib>
#include <filesystem>

namespace plendix {

/// Current from construction on; removed with all that it holds.
struct TemporaryFolder {
    TemporaryFolder() { std::filesystem::current_path(mkdtemp(name)); }
    ~TemporaryFolder() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(name);
    }
    char name[25] = "/tmp/plendix-test-XXXXXX";
};

}  // namespace plendix
