// What libav complains about while this lives, from any of its threads, instead of printing it. It owns
// libav's log callback: one at a time in a process.
#pragma once

#include <cstdint>
#include <string>

namespace plendix {

class LibavComplaints {
public:
    LibavComplaints();
    ~LibavComplaints();
    LibavComplaints(const LibavComplaints&) = delete;
    LibavComplaints& operator=(const LibavComplaints&) = delete;

    std::uint64_t count() const;
    /// One line; empty while there is none.
    std::string first() const;
    void forget();
};

}  // namespace plendix
