// Who is logged in. Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace plendix {

/// So many random bytes of the system, as hexadecimal digits.
std::string random_hex(std::size_t bytes);

/// Takes as long wherever the difference is.
bool equal_in_constant_time(const std::string& left, const std::string& right);

/// A bounded number: when there is no room, the one that was not used for longest ends.
class Sessions {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t most = 256;
    static constexpr std::chrono::hours unused_life{7 * 24};
    static constexpr std::chrono::hours whole_life{30 * 24};

    /// The new session's secret: 256 random bits as text.
    std::string begin(const std::string& user, Clock::time_point now = Clock::now());
    /// Whose session it is; empty: none, or not any more.
    std::string user(const std::string& secret, Clock::time_point now = Clock::now());
    void end(const std::string& secret);

private:
    struct Session {
        std::string secret;
        std::string user;
        Clock::time_point begun;
        Clock::time_point used;
    };

    std::mutex mutex_;
    std::vector<Session> sessions_;  // guarded by mutex_
};

}  // namespace plendix
