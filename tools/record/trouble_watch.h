// The cameras that need somebody: which, why, and since when.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/camera_state.h"

namespace plendix {

enum class TroubleKind { silent, not_reached, refused, losing };  // the worst first

struct Trouble {
    using Time = CameraState::Time;

    TroubleKind kind = TroubleKind::silent;
    int camera = 0;
    std::string name;  // fit for a terminal; empty when it says no more than the number
    std::string address;
    Time since{};
    std::int64_t since_ms = 0;  // the same, UTC since 1970
    std::string refusal;        // the driver's words
    std::uint64_t lost = 0;     // pictures, since then
};

/// Losses that follow each other count as one trouble; a single lost picture is none. One thread.
class TroubleWatch {
public:
    using Time = CameraState::Time;

    /// Several times a second. The worst kind first, in it by camera number.
    std::vector<Trouble> look(const std::vector<CameraState>& cameras, Time now);

private:
    struct Losses {
        std::uint64_t before = 0;   // lost until the trouble began
        std::optional<Time> since;  // nothing: no trouble
    };

    std::optional<Trouble> trouble_of(const CameraState& state, Time now) const;
    void count(const CameraState& state, Time now);

    std::map<int, Losses> losses_;  // by camera
};

}  // namespace plendix
