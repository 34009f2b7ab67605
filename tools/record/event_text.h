// Events in the words of a screen. Pure functions; what they return is fit for a terminal.
#pragma once

#include <string>

#include "host/event.h"

namespace plendix {

/// How much an event matters to people, from least to most.
enum class Weight {
    detail,   // for who looks for something
    minor,    // the end of a motion
    motion,   // its beginning
    fact,     // a camera is live, a trigger, a new configuration
    trouble,  // something is lost, or will be
};

Weight weight_of(const Event& event);

/// Of one event, without its time and camera: "motion ended after 12 s".
std::string event_words(const Event& event);

/// The same for several that differ in numbers only: "motion ended".
std::string common_words(const Event& event);

/// "14:03:05  camera 7: motion ended after 12 s"; local time.
std::string human_line(const Event& event);

/// The same for any subject: "cameras 1-20, 24", or nothing.
std::string told_line(std::int64_t time_ms, const std::string& subject, const std::string& words);

}  // namespace plendix
