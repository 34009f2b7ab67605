// How often an address may try to log in: a few times at once, then ever more slowly. Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace plendix {

/// Addresses of a bounded number; a version 6 address counts by its network of 64 bits.
class LoginTries {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t most = 4096;
    static constexpr int free_tries = 5;
    static constexpr std::chrono::seconds longest_pause{60};

    /// A try begins, and counts as failed until succeeded() tells otherwise. Returns how long the
    /// address has to wait instead; 0: it may try.
    std::chrono::seconds begin(const std::string& address, Clock::time_point now = Clock::now());
    void succeeded(const std::string& address);

private:
    struct Record {
        int failures = 0;
        Clock::time_point last;
        Clock::time_point again;  // not before
    };

    void make_room(Clock::time_point now);

    std::mutex mutex_;
    std::map<std::string, Record> records_;  // guarded by mutex_
};

}  // namespace plendix
