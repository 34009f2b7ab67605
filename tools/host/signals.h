// Signals that ask a running command to stop or to read its configuration again, and those that
// must not end it. Handlers only set atomic numbers and wake who waits.
#pragma once

#include <chrono>
#include <csignal>
#include <vector>

namespace plendix {

/// A pipe that nobody reads any more, or a terminal that is closed, fails the write and nothing
/// else. For the whole process, from main().
void ignore_broken_pipes();

/// While it lives, SIGINT and SIGTERM are requests to stop, and so is SIGHUP, which a terminal sends
/// when it is closed. One at a time; the thread that owns it makes and ends it, any may ask.
class StopSignals {
public:
    enum class Again { ends_process, counts };  // a second SIGINT or SIGTERM
    enum class HangUp { stops, reloads };       // reloads: a configuration file is in use

    explicit StopSignals(Again again = Again::ends_process, HangUp hang_up = HangUp::stops);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    bool requested() const { return count() > 0; }
    /// How often somebody asked. However often a terminal hangs up, it asks once.
    int count() const;
    /// Whether SIGHUP asked for a reload since the last call.
    bool take_reload();
    /// From now on the next SIGINT or SIGTERM ends the process.
    void release();
    /// Returns at the first signal since the last call, at the latest after this time.
    void wait(std::chrono::milliseconds longest) const;

private:
    void handle(int signal);

    struct Before {
        int signal;
        struct sigaction action;
    };
    std::vector<Before> before_;
};

}  // namespace plendix
