// The lines that a screen shows of many events: what several cameras say in one moment is one line, and
// a minute has a limited number of them, of which what matters more gets more.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "record/event_text.h"

namespace plendix {

/// One line, and how much it matters.
struct EventLine {
    Weight weight;
    std::string text;
    std::int64_t time_ms;  // UTC since 1970
};

/// One thread.
class EventLines {
public:
    using Time = std::chrono::steady_clock::time_point;

    void add(const Event& event, Weight weight, Time now);
    /// Those that are due now. What matters most gets its room first, the lines come in order of time.
    std::vector<EventLine> due(Time now);
    /// At the end: what still waits.
    std::vector<EventLine> flush(Time now);

private:
    struct Group {
        Weight weight = Weight::detail;
        std::set<int> cameras;
        std::int64_t events = 0;
        std::int64_t time_ms = 0;  // of the last one, as its words
        std::string words;
        Time opened{};
    };
    using Groups = std::map<std::string, Group>;  // by the words that the events have in common

    bool ready(const std::string& words, const Group& group, Time now) const;
    bool room_for(Weight weight) const;
    void tell(const std::string& words, const Group& group, Time now, std::vector<EventLine>& lines);
    void tell_left_out(Time now, std::vector<EventLine>& lines);
    void forget(Time now);

    Groups groups_;
    std::map<std::string, Time> told_;  // words, for a while
    std::deque<Time> minute_;           // of the lines in the last minute
    std::int64_t left_out_ = 0;         // events
    Time left_out_told_{};
};

}  // namespace plendix
