// The kernel's counters of datagrams that it dropped because a UDP socket's buffer was full, as
// /proc/net/udp tells them. One thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "field/drop_note.h"

namespace plendix {

class SocketDrops {
public:
    /// Counts from now on.
    explicit SocketDrops(std::filesystem::path table = "/proc/net/udp");

    /// What has changed since the last look at sockets that `wanted` names; the others' changes are told
    /// when it does. A socket that was closed in between takes its last drops along.
    std::vector<DropNote> look(const std::function<bool(const Endpoint& socket)>& wanted);

private:
    struct Counter {
        Endpoint socket;
        std::uint64_t drops = 0;
    };
    struct Sum {
        std::uint64_t total = 0, told = 0;
    };
    std::map<std::uint64_t, Counter> read() const;

    const std::filesystem::path table_;
    std::map<std::uint64_t, Counter> counters_;  // by inode
    std::map<Endpoint, Sum> sums_;               // of sockets that have dropped
};

}  // namespace plendix
