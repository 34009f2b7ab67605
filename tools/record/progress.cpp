#include "record/progress.h"

#include <algorithm>
#include <ostream>

#include "host/plain_text.h"

namespace plendix {

static constexpr std::chrono::milliseconds bar_period{200};
static constexpr std::chrono::seconds line_period{5};
static constexpr std::size_t bar_columns = 20;

Progress::Progress(std::ostream& out, const ScreenOptions& options, std::size_t files,
                   std::function<bool()> cancelled)
    : out_(out), options_(options), files_(files), cancelled_(std::move(cancelled)) {}

Progress::~Progress() {
    if (drawn_) out_ << "\r\x1B[K" << std::flush;
}

void Progress::begin(const std::string& file) {
    ++begun_;
    file_ = printable(file);
}

bool Progress::part(double done, Time now) {
    if (cancelled_ && cancelled_()) return false;
    if (options_.quiet || now < next_) return true;
    const bool first = next_ == Time{};
    next_ = now + (options_.terminal ? std::chrono::milliseconds(bar_period) : line_period);
    if (options_.terminal) {
        const auto columns = static_cast<std::size_t>(std::max(options_.width - 1, 20));
        out_ << '\r' << cut(bar(done) + text(done), columns) << "\x1B[K" << std::flush;
        drawn_ = true;
    } else if (!first) {  // a short check needs no line
        out_ << text(done) << std::endl;
    }
    return true;
}

std::string Progress::text(double done) const {
    const auto percent = static_cast<int>(std::clamp(done, 0.0, 1.0) * 100);
    return "checking file " + std::to_string(begun_) + " of " + std::to_string(files_) + ", " +
           std::to_string(percent) + " %: " + file_;
}

/// Of all files.
std::string Progress::bar(double done) const {
    const double before = static_cast<double>(begun_ > 0 ? begun_ - 1 : 0);
    const double part =
        (before + std::clamp(done, 0.0, 1.0)) / static_cast<double>(std::max<std::size_t>(files_, 1));
    const auto filled = std::min(static_cast<std::size_t>(part * bar_columns), bar_columns);
    return '[' + std::string(filled, '#') + std::string(bar_columns - filled, '.') + "] ";
}

}  // namespace plendix
