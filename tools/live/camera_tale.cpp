#include "live/camera_tale.h"

#include <algorithm>

#include "host/diagnosis.h"
#include "host/words.h"
#include "usage.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr milliseconds grace{5s};  // for a camera that is just coming up
constexpr milliseconds patience{1500};

std::string line_of(const Event& event, const CameraState& state) {
    const std::string condition = event.values.value("state", "");
    if (condition == "silent") return title_of(state) + ": silent since " + clock_words(state.since_ms);
    if (!event.values.contains("seconds_without")) return {};
    return title_of(state) + ": back after " +
           span_words(std::chrono::seconds(event.values.value("seconds_without", 0)));
}

std::string seconds_text(milliseconds time) {
    const auto tenths = (time.count() + 50) / 100;
    return std::to_string(tenths / 10) + (tenths % 10 == 0 ? "" : '.' + std::to_string(tenths % 10)) + " s";
}

}  // namespace

std::vector<std::string> CameraTale::look(const std::vector<Event>& events, const CameraState& state,
                                          Time now) {
    std::vector<std::string> lines;
    for (const Event& event : events) {
        if (event.kind != EventKind::state) continue;
        if (std::string line = line_of(event, state); !line.empty()) lines.push_back(std::move(line));
    }
    if (state.condition == CameraCondition::connecting) ask(state, now, lines);
    return lines;
}

/// The question may cost a camera that is coming up the transfer under way: not before its time.
void CameraTale::ask(const CameraState& state, Time now, std::vector<std::string>& lines) {
    if (!asked_ && now - start_ >= std::min(grace, timeout_ / 2)) {
        asked_ = true;
        answer_ = diagnose_aside(state.address, patience);
    }
    const bool answered = answer_.valid() && (late(now) || answer_.wait_for(0s) == std::future_status::ready);
    if (answered) lines.push_back(trouble_line(state, answer_.get()));
}

void CameraTale::require_camera(const CameraState& state, Time now) const {
    if (state.condition == CameraCondition::refused) throw Failure(trouble_line(state));
    if (!state.first_frame && late(now))
        throw Failure("gave up: no picture within " + seconds_text(timeout_));
}

std::string format_text(const PictureFormat& format) {
    return std::to_string(format.width) + 'x' + std::to_string(format.height) +
           (format.codec == FrameCodec::h264 ? " H.264" : " JPEG");
}

}  // namespace plendix
