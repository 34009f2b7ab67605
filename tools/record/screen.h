// What an operator sees while cameras are recorded: events as they come, and how it stands.
#pragma once

#include <chrono>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/event_digest.h"
#include "host/motion_hold.h"
#include "record/event_lines.h"
#include "record/status_block.h"

namespace plendix {

struct ScreenOptions {
    bool terminal = false;  // one status block is redrawn in place; else a line a minute
    int width = 80;         // of the terminal, as its height in characters
    int height = 24;
    bool quiet = false;       // troubles and errors only
    bool verbose = false;     // the driver's own words, too
    bool all_events = false;  // each in a line of its own, as it comes
    std::chrono::milliseconds motion_hold{5000};
};

/// The options for a descriptor: whether it is a terminal, and of which size.
ScreenOptions screen_options(int descriptor);

/// What it prints is fit for a terminal whatever names and log lines hold, and less than 60 lines
/// a minute but for `all_events` and `say`. One thread.
class Screen {
public:
    using Time = CameraState::Time;

    Screen(std::ostream& out, const ScreenOptions& options);

    void event(const Event& event, Time now);
    /// A line by itself, at once.
    void say(const std::string& line);
    /// Several times a second: draws at most twice a second.
    void update(const std::vector<CameraState>& cameras, const RecorderNumbers& numbers, Time now);
    /// The terminal has another size now.
    void resize(int width, int height);
    /// What still waits; the block goes.
    void finish();

private:
    void take(const Event& event, Time now);
    void show_event(Event event, Time now);
    Weight weight_here(const Event& event);
    void without_subject(Event& event) const;
    void add_lines(const std::vector<EventLine>& lines);
    void look(const std::vector<CameraState>& cameras, const RecorderNumbers& numbers, Time now);
    void draw();
    void write_line_of_minute(Time now);
    std::vector<std::string> block() const;
    std::string erased();
    void print(const std::string& text);

    std::ostream& out_;
    ScreenOptions options_;
    MotionHold hold_;
    EventDigest digest_;
    EventLines lines_;
    TroubleWatch watch_;
    RateMeter meter_;
    Status status_;
    std::map<int, std::pair<std::string, std::string>> names_;  // name and address by camera
    std::set<int> troubled_;                                    // cameras whose trouble was told as an event
    std::map<int, std::string> settings_;                       // by camera, as told last
    std::string waiting_;                                       // lines for the next drawing
    std::vector<std::string> drawn_;                            // the block on the terminal
    std::string line_told_;                                     // what was wrong in the last line of a minute
    Time last_{};                                               // that anybody told
    Time next_drawing_{};
    Time next_line_{};
    bool began_ = false;
};

}  // namespace plendix
