// What an interrupted transfer was, as what followed it shows.
#include <algorithm>
#include <utility>

#include "field/inspect_link.h"

namespace plendix {
namespace {

using Kind = Incident::Kind;

constexpr std::int64_t settled_ns = 60 * second_in_ns;      // what follows a silence is known by then
constexpr std::int64_t remembered_ns = 180 * second_in_ns;  // connections
constexpr std::size_t most_last_blocks = 10'000;

}  // namespace

void Link::forget_connection() {
    streamed_ = streamed_ || connections_.front().pictures;
    connections_.pop_front();
}

/// Registers that had been settled were not any more: the camera has forgotten them.
bool Link::restarted(const Connection& connection) const {
    return connection.written &&
           (streamed_ || std::any_of(connections_.begin(), connections_.end(), [&](const Connection& other) {
                return other.pictures && other.begin_ns < connection.begin_ns;
            }));
}

/// Once all those before are known.
void Link::tell_connections(std::int64_t now_ns, bool end) {
    for (std::size_t i = 0; i < connections_.size(); ++i) {
        Connection& connection = connections_[i];
        if (connection.told) continue;
        if (!end && nanoseconds_between(connection.begin_ns, now_ns) <= settled_ns) return;
        connection.told = true;
        if (i > 0 && connection.identified) {
            Incident again = incident(connection.begin_ns, Kind::reconnected);
            again.block = connection.port;
            again.last = connections_[i - 1].port;
            capture_.incidents.add(std::move(again));
        }
        if (restarted(connection)) capture_.incidents.add(incident(connection.begin_ns, Kind::restarted));
    }
}

void Link::settle(std::int64_t now_ns, const IdLedger& ids, bool end) {
    while (!open_.empty() && (end || nanoseconds_between(open_.front().since_ns, now_ns) > settled_ns)) {
        const Open open = open_.front();
        open_.pop_front();
        decide(open, now_ns, ids);
    }
    tell_connections(now_ns, end);
    while (connections_.size() > 1 &&
           nanoseconds_between(connections_.front().last_ns, now_ns) > remembered_ns)
        forget_connection();
    if (end && held_) lose(*std::exchange(held_, std::nullopt), true);
}

bool Link::settled() const {
    return open_.empty() && connections_.size() < 2 && (connections_.empty() || connections_.front().told);
}

const Link::Connection* Link::next_connection(const Open& open) const {
    const auto found =
        std::find_if(connections_.begin(), connections_.end(), [&](const Connection& connection) {
            return connection.begin_ns > open.since_ns && connection.port != open.port;
        });
    return found == connections_.end() ? nullptr : &*found;
}

/// A transfer in which nothing more came: what the client did then, and whether the camera answered, tells
/// what it was.
void Link::decide(const Open& open, std::int64_t now_ns, const IdLedger& ids) {
    const Connection* const next = next_connection(open);
    const std::int64_t watched = nanoseconds_between(open.since_ns, now_ns);
    const std::int64_t watched_next = next == nullptr ? 0 : nanoseconds_between(next->begin_ns, now_ns);
    const bool no_answer_yet = next != nullptr && next->answer_ns < 0 && watched_next <= prompt_ns;
    if ((next == nullptr && watched <= patience_ns + prompt_ns) || no_answer_yet) {
        if (open.picture) ++counts_.unknown;
        return;
    }
    Incident lost = incident(open.begin_ns, open.picture ? Kind::lost_picture : Kind::failed_request);
    lost.block = open.block;
    lost.cause = Loss::given_up;
    if (next == nullptr)
        lost.why = Why::went_away;
    else if (nanoseconds_between(open.since_ns, next->begin_ns) < prompt_ns)
        lost.why = Why::went_on;
    else
        return decide_alive(open, *next, ids, std::move(lost));
    lose(std::move(lost), open.picture);
}

/// Whoever asked next may have been somebody else on the same machine, or was interrupted before the
/// registers were gone through.
bool Link::restarted_after(const Open& open) const {
    const auto through =
        std::find_if(connections_.begin(), connections_.end(), [&](const Connection& connection) {
            return connection.begin_ns > open.since_ns && (connection.written || connection.pictures);
        });
    return through != connections_.end() && through->written && (open.picture || restarted(*through));
}

/// The client waited, and then asked from another port.
void Link::decide_alive(const Open& open, const Connection& next, const IdLedger& ids, Incident lost) {
    lost.why = open.why;
    if (open.why == Why::not_taken) {
        lost.cause = Loss::ours_late;
        if (open.picture && dropped_by_kernel(open.port, open.begin_ns, next.begin_ns))
            ++counts_.confirmed_late;
        return lose(std::move(lost), open.picture);
    }
    const bool prompt = next.answer_ns >= 0 && next.answer_ns <= prompt_ns;
    if (!prompt || restarted_after(open)) {
        lost.cause = Loss::stalled;
        lost.why = prompt ? Why::restarted : Why::no_next_answer;
        return lose(std::move(lost), open.picture);
    }
    const IdLedger::Answer sent = ids.between(open.since_ns, next.begin_ns + next.answer_ns);
    if (sent != IdLedger::Answer::unknown) {
        lost.cause = sent == IdLedger::Answer::sent ? Loss::lost_on_way : Loss::ack_lost;
        return lose(std::move(lost), open.picture);
    }
    if (open.why == Why::nothing_at_the_end && open.picture && !open.repeated &&
        last_blocks_.size() < most_last_blocks) {
        last_blocks_.push_back(std::move(lost));
        return;
    }
    lost.cause = open.why == Why::nothing_came ? Loss::lost_on_way : Loss::ack_lost;
    if (open.picture && open.why == Why::nothing_came) ++counts_.either;
    if (open.picture && open.why == Why::nothing_behind && !open.repeated) ++waiting_;
    lose(std::move(lost), open.picture);
}

/// The trailer, or the acknowledgement in front of it: as the other losses of this camera were, or of all.
void Link::conclude() {
    if (!goes_on_) counts_.either += waiting_;
    const bool own = ways_ + acknowledgements_ > 0;
    const bool way = own ? ways_ > acknowledgements_ : capture_.ways > capture_.acknowledgements;
    for (Incident& lost : std::exchange(last_blocks_, {})) {
        lost.cause = way ? Loss::lost_on_way : Loss::ack_lost;
        ++counts_.either;
        lose(std::move(lost), true);
    }
}

}  // namespace plendix
