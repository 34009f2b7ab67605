// How the recorder does at a moment, in a few lines: what is wrong first. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "record/rate_meter.h"
#include "record/record_totals.h"
#include "record/trouble_watch.h"

namespace plendix {

struct Status {
    using Time = CameraState::Time;

    std::vector<Trouble> troubles;
    std::size_t live = 0;
    std::size_t wanted = 0;  // cameras that are not switched off
    std::set<int> moving;    // cameras with motion
    Rates rates;
    RecorderNumbers numbers;
    Time began{};
    Time now{};
};

/// For a terminal: lines of at most `columns`, at most `most` of them, but never less than two.
std::vector<std::string> status_block(const Status& status, std::size_t columns, std::size_t most);

/// The same in one line, for a log.
std::string status_line(const Status& status);

}  // namespace plendix
