// Owner of a file descriptor.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

namespace plendix {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(std::exchange(other.number_, -1));
        return *this;
    }

    void reset(int number = -1) {
        if (number_ >= 0) ::close(number_);
        number_ = number;
    }
    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_ = -1;
};

/// False when the path leads to another file than the open one by now, or to none.
inline bool leads_to(const std::filesystem::path& path, int descriptor) {
    struct stat named {};
    struct stat ours {};
    return stat(path.c_str(), &named) == 0 && fstat(descriptor, &ours) == 0 && named.st_dev == ours.st_dev &&
           named.st_ino == ours.st_ino;
}

}  // namespace plendix
