// Descriptors that a test takes away from the plug-in.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

namespace plendix {

/// While it lives, the process may have so many descriptors, and all below end are taken.
struct TakenDescriptors {
    explicit TakenDescriptors(rlim_t limit, int end = 1 << 20) {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit changed = {limit, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &changed);
        for (int next = 0; next >= 0 && next < end - 1; taken.push_back(next))
            next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    ~TakenDescriptors() {
        for (const int descriptor : taken)
            ::close(descriptor);
        setrlimit(RLIMIT_NOFILE, &before);
    }
    rlimit before = {};
    std::vector<int> taken;
};

}  // namespace plendix
