// The last hour of a camera in steps of ten seconds, for a plot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/camera_state.h"

namespace plendix {

/// One thread, or a lock around it. Rates come from sums that grow, so that nothing is counted twice.
class History {
public:
    static constexpr int step_s = 10;
    static constexpr std::size_t steps = 360;

    void add(const CameraState& state, bool motion, CameraState::Time now);
    /// Pictures a second over the last step and what there is of the present one.
    double rate() const { return rate_; }
    /// `now_ms`: the same moment, UTC.
    nlohmann::ordered_json json(CameraState::Time now, std::int64_t now_ms) const;

private:
    struct Sum {
        CameraState::Time time{};
        std::uint64_t frames = 0;
        std::uint64_t losses = 0;
    };
    struct Step {
        double rate = 0;
        std::uint64_t lost = 0;
        double motion = 0;  // part of the looks that saw some
    };

    static Sum sum_of(const CameraState& state, CameraState::Time now);
    void close(const Sum& now);

    std::optional<Sum> begun_;  // the step
    std::deque<Sum> recent_;    // of the last ten seconds
    std::deque<Step> done_;
    int looks_ = 0, moving_ = 0;
    double rate_ = 0;
};

}  // namespace plendix
