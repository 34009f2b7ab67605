// What an operator sees while a capture runs: a line that is redrawn on a terminal, else one a minute.
#pragma once

#include <chrono>
#include <iosfwd>
#include <string>

#include "field/capture_output.h"

namespace plendix {

/// Counts since the capture began.
struct CaptureTotals {
    std::uint64_t packets = 0;
    std::uint64_t repeated = 0;  // seen on a second interface, too, and left out
    std::uint64_t missed = 0;    // by the capture itself
    std::uint64_t dropped = 0;   // by this machine's sockets
};

/// "512345 packets, 412 MB, 3 min"
std::string kept_words(const CaptureOutput::Kept& kept);
/// ", the capture missed 12, sockets here dropped 5"; nothing where nothing was lost.
std::string loss_words(const CaptureTotals& totals);

/// One thread.
class CaptureScreen {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Of the stream's descriptor.
    CaptureScreen(std::ostream& out, int descriptor);
    ~CaptureScreen();
    CaptureScreen(const CaptureScreen&) = delete;
    CaptureScreen& operator=(const CaptureScreen&) = delete;

    /// A line by itself, at once.
    void say(const std::string& line);
    /// About once a second.
    void update(const CaptureTotals& totals, const CaptureOutput::Kept& kept, Time now);

private:
    std::ostream& out_;
    const int descriptor_;
    const bool terminal_;
    const Time began_;
    Time next_line_;
    bool drawn_ = false;
};

}  // namespace plendix
