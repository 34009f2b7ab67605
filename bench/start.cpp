// How long the library takes to start: dlopen, Load and Open, each time in a process of its own.
// Usage: start_bench LIBRARY [LIMIT_MS]   exit 1 when the fastest start takes longer than the limit
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "plugin/host_records.h"

namespace {

constexpr int runs = 21;

int accept_event(_EventParmsIn*, _EventParmsOut* out) {
    out->Error = 0;
    return 0;
}

/// Milliseconds that it took in this process; negative when the library is no plug-in.
double start(const char* file) {
    const auto begin = std::chrono::steady_clock::now();
    void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return -1;
    const auto load = reinterpret_cast<LoadFunction>(dlsym(library, "Load"));
    const auto open = reinterpret_cast<OpenFunction>(dlsym(library, "Open"));
    if (load == nullptr || open == nullptr) return -1;
    _LoadParmsIn load_in = {sizeof(load_in), 1, 0, accept_event};
    _LoadParmsOut load_out = {};
    _OpenParmsIn open_in = {sizeof(open_in), 1};
    _OpenParmsOut open_out = {};
    load(&load_in, &load_out);
    open(&open_in, &open_out);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double start_in_child(const char* file) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        const double time = start(file);
        _exit(write(ends[1], &time, sizeof(time)) == sizeof(time) ? 0 : 1);
    }
    double time = -1;
    close(ends[1]);
    if (child == -1 || read(ends[0], &time, sizeof(time)) != sizeof(time)) time = -1;
    close(ends[0]);
    if (child != -1) waitpid(child, nullptr, 0);
    return time;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: start_bench LIBRARY [LIMIT_MS]\n");
        return 2;
    }
    const std::string file = std::filesystem::absolute(argv[1]);
    char folder[] = "/tmp/plendix-start-XXXXXX";  // of the settings file: there is none
    if (mkdtemp(folder) == nullptr || chdir(folder) != 0) return 1;
    std::vector<double> times(runs);
    std::generate(times.begin(), times.end(), [&] { return start_in_child(file.c_str()); });
    std::filesystem::remove_all(folder);
    std::sort(times.begin(), times.end());
    if (times.front() < 0) {
        std::fprintf(stderr, "start_bench: '%s' does not start: give the path of a Plendix.so\n", argv[1]);
        return 1;
    }
    std::printf("start: fastest %.2f ms, median %.2f ms, slowest %.2f ms of %d\n", times.front(),
                times[runs / 2], times.back(), runs);
    return argc == 3 && times.front() > std::atof(argv[2]) ? 1 : 0;
}
