#include "field/capture_screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

constexpr std::chrono::minutes line_period{1};
constexpr const char* erase = "\r\x1B[K";

std::size_t columns_of_terminal(int descriptor) {
    winsize size{};
    const bool known = ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return std::max<std::size_t>(known ? size.ws_col : 80, 20);
}

}  // namespace

std::string kept_words(const CaptureOutput::Kept& kept) {
    const std::int64_t span_ms = std::max<std::int64_t>(kept.last_ns - kept.first_ns, 0) / 1'000'000;
    const std::string span = span_ms < 10'000 ? fixed(static_cast<double>(span_ms) / 1000, 1) + " s"
                                              : span_words(std::chrono::seconds(span_ms / 1000));
    return std::to_string(kept.packets) + (kept.packets == 1 ? " packet, " : " packets, ") +
           byte_words(kept.bytes) + ", " + span;
}

std::string loss_words(const CaptureTotals& totals) {
    std::string text;
    if (totals.missed > 0) text += ", the capture itself missed " + std::to_string(totals.missed);
    if (totals.dropped > 0) text += ", sockets here dropped " + std::to_string(totals.dropped);
    return text;
}

CaptureScreen::CaptureScreen(std::ostream& out, int descriptor)
    : out_(out),
      descriptor_(descriptor),
      terminal_(isatty(descriptor) == 1),
      began_(std::chrono::steady_clock::now()),
      next_line_(began_ + line_period) {}

CaptureScreen::~CaptureScreen() {
    if (drawn_) out_ << erase << std::flush;
}

void CaptureScreen::say(const std::string& line) {
    out_ << (drawn_ ? erase : "") << line << std::endl;
    drawn_ = false;
}

void CaptureScreen::update(const CaptureTotals& totals, const CaptureOutput::Kept& kept, Time now) {
    if (!terminal_ && now < next_line_) return;
    const auto runs = std::chrono::duration_cast<std::chrono::seconds>(now - began_);
    const std::string text = span_words(runs) + ": kept " + kept_words(kept) + loss_words(totals);
    if (!terminal_) {
        next_line_ += line_period;
        return say(text);
    }
    // The last column stays free: some terminals go to the next line behind it.
    out_ << erase << cut(text, columns_of_terminal(descriptor_) - 1) << std::flush;
    drawn_ = true;
}

}  // namespace plendix
