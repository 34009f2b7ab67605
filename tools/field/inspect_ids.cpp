#include "field/inspect_ids.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::uint16_t small_step = 32;  // what lies between two datagrams went elsewhere, or was lost
constexpr std::uint64_t enough_steps = 16;
constexpr std::size_t most_gaps = 4096;

}  // namespace

void IdLedger::add(std::uint16_t id, std::int64_t time_ns) {
    const auto step = static_cast<std::uint16_t>(id - last_);
    if (any_) {
        ++steps_;
        const bool late = step > 0xFFFF - small_step && fills(id);
        if (step >= 1 && step <= small_step) ++small_steps_;
        if (late) return;
        if (step > 1 && step <= small_step) {
            const auto missing = static_cast<std::uint16_t>(step - 1);
            gaps_.push_back({time_ns, static_cast<std::uint16_t>(last_ + 1), missing});
        }
        if (gaps_.size() > most_gaps) gaps_.pop_front();
    }
    any_ = true;
    last_ = id;
}

/// Whether the number is one of those that are missing: it was only late.
bool IdLedger::fills(std::uint16_t id) {
    const auto found = std::find_if(gaps_.rbegin(), gaps_.rend(), [id](const Gap& gap) {
        return static_cast<std::uint16_t>(id - gap.first) < small_step;
    });
    if (found == gaps_.rend() || found->missing == 0) return false;
    --found->missing;
    return true;
}

bool IdLedger::counts_up() const {
    return steps_ >= enough_steps && small_steps_ * 10 >= steps_ * 9;
}

IdLedger::Answer IdLedger::between(std::int64_t since_ns, std::int64_t until_ns) const {
    if (!counts_up()) return Answer::unknown;
    const bool sent = std::any_of(gaps_.begin(), gaps_.end(), [&](const Gap& gap) {
        return gap.missing > 0 && gap.behind_ns > since_ns && gap.behind_ns <= until_ns;
    });
    return sent ? Answer::sent : Answer::nothing_sent;
}

}  // namespace plendix
