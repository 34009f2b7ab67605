// The least that keeping pictures can cost: as many bytes in pieces of the same size into as many files,
// and nothing else. Prints the CPU seconds of user and system.
// Usage: bare_write FOLDER FILES PIECES BYTES
// PIECES of BYTES each for every file, in turn, like cameras. Replaces FOLDER/1 and so on.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct File {
    int descriptor;
    std::vector<char> picture;
};

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int count, char** values) {
    const int files = count == 5 ? std::atoi(values[2]) : 0;
    const int pieces = count == 5 ? std::atoi(values[3]) : 0;
    const auto bytes = static_cast<std::size_t>(count == 5 ? std::atoi(values[4]) : 0);
    if (files < 1 || pieces < 1 || bytes < 1) {
        std::fprintf(stderr, "usage: bare_write FOLDER FILES PIECES BYTES\n");
        return 2;
    }
    std::vector<File> all;
    for (int i = 1; i <= files; ++i) {
        const std::string name = values[1] + ('/' + std::to_string(i));
        all.push_back(
            {open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), std::vector<char>(bytes, '7')});
    }
    const double begun = cpu_seconds();
    for (int i = 0; i < pieces; ++i) {
        for (const File& file : all) {
            if (write(file.descriptor, file.picture.data(), bytes) == static_cast<ssize_t>(bytes)) continue;
            std::perror("bare_write");
            return 1;
        }
    }
    std::printf("%.6f\n", cpu_seconds() - begun);
}
