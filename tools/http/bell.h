// Wakes a thread that waits for descriptors.
#pragma once

#include <atomic>

namespace plendix {

/// Any thread rings; one waits, and clears the bell before it looks for what there is to do.
class Bell {
public:
    Bell();  // throws Failure
    ~Bell();
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    int descriptor() const { return descriptor_; }  // readable while it rings
    void ring();                                    // costs next to nothing while it rings already
    void clear();

private:
    int descriptor_;
    std::atomic<bool> ringing_{false};
};

}  // namespace plendix
