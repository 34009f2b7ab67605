// One transfer on its way to one client again: each datagram so long behind that of the client before it
// as in the capture. Without network; the caller tells the time. One thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "field/replay_transfer.h"

namespace plendix {

using ReplayClock = std::chrono::steady_clock;

/// What a client does in other order, twice or not at all holds up nothing: the datagrams keep the order of
/// the capture, and one that waits for a datagram that does not come (the capture may have missed what the
/// client answered) goes out a second late. Whoever is not heard of ten times in a row has gone.
class ReplaySession {
public:
    using Time = ReplayClock::time_point;
    static constexpr Time never = Time::max();

    /// The request has come now. Without delays a datagram follows at once.
    ReplaySession(ReplayTransferPointer transfer, bool delays, Time now);

    /// A datagram of the client has come.
    void hear(std::uint32_t head, Time now);
    /// When `next` has something to do; `never` while there is nothing left.
    Time due() const { return due_; }
    /// The datagram to be sent now, if there is one.
    const ReplaySend* next(Time now);
    /// The datagram that would be due later, whose cue has come: for who cannot wait.
    const ReplaySend* hurry(Time now);
    /// All is sent.
    bool sent() const { return next_ == transfer_->sends.size(); }
    const ReplayTransfer& transfer() const { return *transfer_; }

private:
    bool cued() const { return transfer_->sends[next_].after < heard_.size(); }
    void plan(Time now);
    void assume(Time now);
    const ReplaySend* take(Time now);

    ReplayTransferPointer transfer_;
    bool delays_;
    std::vector<Time> heard_;  // of the cues, one after the other
    std::size_t next_ = 0;     // of the sends
    int assumed_ = 0;          // cues in a row
    Time due_ = never;
};

}  // namespace plendix
