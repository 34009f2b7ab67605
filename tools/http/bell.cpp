#include "http/bell.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "usage.h"

namespace plendix {

Bell::Bell() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) throw Failure("cannot wait for events: " + error_text(errno));
}

Bell::~Bell() {
    close(descriptor_);
}

void Bell::ring() {
    if (ringing_.exchange(true)) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto ignored = write(descriptor_, &one, sizeof one);
}

/// The mark last: whoever finds it set rings for something that is looked for after this.
void Bell::clear() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto ignored = read(descriptor_, &count, sizeof count);
    ringing_ = false;
}

}  // namespace plendix
