// A question to one address: a pseudo-file, asked for again when no answer came, until there is one or
// time is up. Told what arrives and what time it is, it tells what to send; there is never more than one
// request on its way. No socket and no clock of its own; one thread at a time.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "link/exchange.h"

namespace plendix::link {

/// How long is waited.
struct Patience {
    std::chrono::milliseconds
        attempt;                      // for the next packet of the answer, before the file is asked for again
    std::chrono::milliseconds whole;  // for the whole answer
};

class Inquiry {
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class End {
        none,      // it goes on
        answered,  // exchange() is complete
        odd,       // odd() came
        stopped,   // options were acknowledged, and then nothing came
        silent,
        failed  // the network or the system said error()
    };

    struct Datagram {
        Bytes bytes;
        std::uint16_t port;  // at the address that is asked
    };

    Inquiry(std::string name, std::size_t most_bytes, Trust trust, Patience patience, Time now);

    /// Each of these may end it; then the others do nothing.
    void take(View datagram, std::uint16_t port, Time now);
    void fail(int error);
    void tick(Time now);

    /// When `tick` is due. Requires that it goes on.
    Time deadline() const;
    /// What is to be sent next; to be asked after each call, until there is nothing.
    std::optional<Datagram> outgoing();

    End end() const { return end_; }
    const Exchange& exchange() const { return exchange_; }
    const OddAnswer& odd() const { return odd_; }
    int error() const { return error_; }
    /// From the request to the option acknowledgement, where one request was enough.
    std::optional<std::chrono::steady_clock::duration> round_trip() const { return round_trip_; }

private:
    void ask(Time now);
    void judge(Time now);
    bool worth_asking(Time now) const;  // an answer would have the time to come

    std::string name_;
    std::size_t most_bytes_;
    Trust trust_;
    Patience patience_;
    Exchange exchange_;
    Time asked_, attempt_end_, whole_end_;
    std::optional<Time> verdict_;  // when odd() is taken for the answer
    int attempts_ = 0;
    bool granted_ = false;  // by any of them
    bool broken_ = false;   // one of them was
    std::deque<Datagram> outgoing_;
    End end_ = End::none;
    OddAnswer odd_;
    int error_ = 0;
    std::optional<std::chrono::steady_clock::duration> round_trip_;
};

}  // namespace plendix::link
