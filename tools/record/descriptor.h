// Owner of a file descriptor.
#pragma once

#include <unistd.h>

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

}  // namespace plendix
