// One check of one camera: what is to be done, how long it may take, and what was found. One thread.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "check/findings.h"

namespace plendix::check {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct CheckOptions {
    std::string address;            // dotted IPv4
    bool relay = false;             // may be switched
    milliseconds patience{2'000};   // for one packet; the driver has 10 s
    milliseconds withheld{150};     // acknowledgements, to see whether the camera waits for them
    milliseconds abandoned{500};    // a transfer, in front of the next request
    milliseconds budget{60'000};    // for all; what comes later is not judged
    std::function<bool()> stopped;  // somebody wants it to end
};

class Examination {
public:
    explicit Examination(const CheckOptions& what) : options(what), end_(Clock::now() + what.budget) {}

    /// Why nothing more is asked; empty while there is no reason.
    std::string over() const {
        std::string reason = ended();
        if (!reason.empty() || restoring()) return reason;
        return silences >= most_silences ? "the camera fell silent" : "";
    }
    /// The same, of reasons that are not the camera's.
    std::string ended() const {
        if (stopped()) return restoring() ? "it could not be put back in time" : "ended before its time";
        if (restoring()) return {};
        if (Clock::now() < end_) return {};
        return "the check's " + std::to_string(options.budget.count() / 1000) + " s are over";
    }
    /// Nothing is waited for any more.
    bool stopped() const { return restore_end_ ? Clock::now() >= *restore_end_ : asked_to_end(); }
    bool asked_to_end() const { return options.stopped && options.stopped(); }

    /// While it lives, what was changed is put back, whatever has happened; it has a time of its own for
    /// that.
    class Restoring {
    public:
        explicit Restoring(Examination& examination) : examination_(examination) {
            examination.restore_end_ = Clock::now() + time_to_restore;
        }
        ~Restoring() { examination_.restore_end_.reset(); }
        Restoring(const Restoring&) = delete;
        Restoring& operator=(const Restoring&) = delete;

    private:
        Examination& examination_;
    };
    bool restoring() const { return restore_end_.has_value(); }

    const CheckOptions options;
    Findings findings{};
    bool heard = false;                    // anything, from the camera's address
    int silences = 0;                      // requests without an answer, one behind the other
    std::vector<Clock::duration> waits{};  // for a packet, from what asked for it

private:
    static constexpr int most_silences = 3;
    static constexpr milliseconds time_to_restore{10'000};
    const Clock::time_point end_;
    std::optional<Clock::time_point> restore_end_{};
};

}  // namespace plendix::check
