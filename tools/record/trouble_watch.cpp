#include "record/trouble_watch.h"

#include <algorithm>

#include "host/plain_text.h"

namespace plendix {
namespace {

using std::chrono::milliseconds;
using Time = CameraState::Time;

constexpr std::chrono::seconds patience{10};   // with a camera that connects
constexpr std::chrono::seconds good_time{30};  // without a loss ends the trouble
constexpr std::uint64_t many_losses = 3;
constexpr std::size_t longest_name = 20;

std::uint64_t lost(const CameraState& state) {
    return state.lost_blocks + state.timeouts;
}

/// The wall clock at a moment of the monotonic one, as it was set when the condition began.
std::int64_t wall_ms(const CameraState& state, Time time) {
    return state.since_ms + std::chrono::duration_cast<milliseconds>(time - state.since).count();
}

Trouble trouble_with(const CameraState& state, TroubleKind kind) {
    Trouble trouble;
    trouble.kind = kind;
    trouble.camera = state.number;
    const std::string name = printable(state.name);
    if (name != "Camera " + std::to_string(state.number)) trouble.name = cut(name, longest_name);
    trouble.address = printable(state.address);
    trouble.refusal = printable(state.refusal);
    return trouble;
}

std::optional<TroubleKind> kind_of(const CameraState& state, Time now) {
    switch (state.condition) {
        case CameraCondition::silent:
            return TroubleKind::silent;
        case CameraCondition::refused:
            return TroubleKind::refused;
        case CameraCondition::connecting:
            if (now - state.since >= patience) return TroubleKind::not_reached;
            break;
        case CameraCondition::off:
        case CameraCondition::live:
            break;
    }
    return std::nullopt;
}

}  // namespace

std::vector<Trouble> TroubleWatch::look(const std::vector<CameraState>& cameras, Time now) {
    std::vector<Trouble> troubles;
    for (const CameraState& state : cameras) {
        count(state, now);
        if (auto trouble = trouble_of(state, now)) troubles.push_back(std::move(*trouble));
    }
    std::stable_sort(troubles.begin(), troubles.end(),
                     [](const Trouble& one, const Trouble& other) { return one.kind < other.kind; });
    return troubles;
}

void TroubleWatch::count(const CameraState& state, Time now) {
    Losses& losses = losses_[state.number];
    const bool lately = state.last_loss && now - *state.last_loss < good_time;
    if (!lately || lost(state) < losses.before) {
        losses = {lost(state), std::nullopt};
    } else if (!losses.since && lost(state) > losses.before) {
        losses.since = state.last_loss;
    }
}

std::optional<Trouble> TroubleWatch::trouble_of(const CameraState& state, Time now) const {
    if (const auto kind = kind_of(state, now)) {
        Trouble trouble = trouble_with(state, *kind);
        trouble.since = state.since;
        trouble.since_ms = state.since_ms;
        return trouble;
    }
    const Losses& losses = losses_.at(state.number);
    const std::uint64_t count = lost(state) - losses.before;
    if (state.condition != CameraCondition::live || !losses.since || count < many_losses) return {};
    Trouble trouble = trouble_with(state, TroubleKind::losing);
    trouble.since = *losses.since;
    trouble.since_ms = wall_ms(state, trouble.since);
    trouble.lost = count;
    return trouble;
}

}  // namespace plendix
