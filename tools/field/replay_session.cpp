#include "field/replay_session.h"

#include <algorithm>
#include <utility>

namespace plendix {
namespace {

using std::chrono::microseconds;

constexpr std::chrono::seconds patience{1};
constexpr int most_assumed = 10;

}  // namespace

ReplaySession::ReplaySession(ReplayTransferPointer transfer, bool delays, Time now)
    : transfer_(std::move(transfer)), delays_(delays), heard_{now} {
    plan(now);
}

void ReplaySession::hear(std::uint32_t head, Time now) {
    const auto& cues = transfer_->cues;
    for (std::size_t i = heard_.size(); i < cues.size(); ++i) {
        if (cues[i].head != head) continue;
        heard_.resize(i + 1, now);
        assumed_ = 0;
        plan(now);
        return;
    }
}

/// Sets the time of the next datagram, or of the end of the patience with the client.
void ReplaySession::plan(Time now) {
    due_ = never;
    if (sent()) return;
    const ReplaySend& send = transfer_->sends[next_];
    const std::uint32_t cue = transfer_->cues[send.after].time_us;
    if (cued()) {
        due_ = delays_ ? heard_[send.after] + microseconds(send.time_us - cue) : now;
    } else if (assumed_ < most_assumed) {
        const std::uint32_t before = transfer_->cues[heard_.size() - 1].time_us;
        due_ = std::max(now, heard_.back() + microseconds(cue - before)) + patience;
    }
}

void ReplaySession::assume(Time now) {
    heard_.resize(transfer_->sends[next_].after + std::size_t{1}, now);
    ++assumed_;
    plan(now);
}

const ReplaySend* ReplaySession::take(Time now) {
    const ReplaySend* const send = &transfer_->sends[next_++];
    plan(now);
    return send;
}

const ReplaySend* ReplaySession::next(Time now) {
    if (due_ > now) return nullptr;
    if (!cued()) assume(now);
    return due_ > now ? nullptr : take(now);
}

const ReplaySend* ReplaySession::hurry(Time now) {
    return sent() || !cued() ? nullptr : take(now);
}

}  // namespace plendix
