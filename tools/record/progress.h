// How far the check at the end is: a bar on a terminal, else a line every few seconds.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

#include "record/screen.h"

namespace plendix {

/// One thread.
class Progress {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// `cancelled` is asked all the time; quiet options print nothing.
    Progress(std::ostream& out, const ScreenOptions& options, std::size_t files,
             std::function<bool()> cancelled);
    /// Takes the bar away.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// The next file.
    void begin(const std::string& file);
    /// So much of it is done, 0 to 1. False: the check is to end.
    bool part(double done, Time now);

private:
    std::string text(double done) const;
    std::string bar(double done) const;

    std::ostream& out_;
    ScreenOptions options_;
    std::size_t files_;
    std::function<bool()> cancelled_;
    std::size_t begun_ = 0;
    std::string file_;
    Time next_{};
    bool drawn_ = false;
};

}  // namespace plendix
