#include "record/event_text.h"

#include <chrono>
#include <cmath>
#include <cstdlib>

#include "host/diagnosis.h"
#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

using Values = nlohmann::ordered_json;

constexpr int warning_level = 50;  // of the driver's log lines
constexpr std::size_t longest_document = 60;

/// "settings 1600x1184 H.264 20 fps, model 105, firmware 61750"
std::string settings_words(const Values& values) {
    if (values.contains("removed")) return "removed";
    std::string text = "settings ";
    if (!values.value("enabled", false)) return text + "switched off";
    if (values.value("model", 0) == 0) return text + "not identified yet";
    const auto number = [&values](const char* name) { return std::to_string(values.value(name, 0)); };
    if (values.value("width", 0) > 0 && values.value("framerate", 0) > 0) {  // before, neither is decided on
        text += number("width") + 'x' + number("height") + ' ';
        text += values.value("codec", "") == "h264" ? "H.264 " : "JPEG ";
        text += number("framerate") + " fps, ";
    }
    text += "model " + number("model");
    if (values.value("firmware", 0) > 0) text += ", firmware " + number("firmware");
    return text;
}

/// The driver tells of a configuration several times while it learns a camera.
bool is_settled(const Values& values) {
    return values.contains("removed") || (values.value("model", 0) > 0 && values.value("width", 0) > 0);
}

bool active(const Values& values) {
    return values.value("active", false);
}

std::string motion_words(const Values& values) {
    if (active(values)) return "motion";
    if (!values.contains("seconds")) return "no motion";
    return "motion ended after " +
           span_words(std::chrono::seconds(std::lround(values.value("seconds", 0.0))));
}

std::string state_words(const Values& values) {
    std::string diagnosis = values.value("diagnosis", "");
    if (!diagnosis.empty()) return diagnosis;
    const std::string reason = values.value("reason", "");
    if (const std::int64_t pause = values.value("seconds_without", std::int64_t{0}); pause > 0)
        return "live again, " + span_words(std::chrono::seconds(pause)) + " without pictures";
    return values.value("state", "") + (reason.empty() ? "" : ": " + with_advice(reason));
}

std::string log_words(const Values& values) {
    if (values.contains("lost_block")) {
        return "picture lost: block " + std::to_string(values.value("lost_block", 0)) + " of " +
               std::to_string(values.value("of", 0)) + " did not arrive";
    }
    if (values.contains("timeout")) return "no answer for 10 s, connecting again";
    return with_advice(values.value("text", ""));
}

std::string clock_step_words(const Values& values) {
    const std::int64_t jump_ms = values.value("set_by_ms", std::int64_t{0});
    const auto jump = std::chrono::round<std::chrono::seconds>(std::chrono::milliseconds(std::abs(jump_ms)));
    return std::string("the clock was set ") + (jump_ms < 0 ? "back by " : "forward by ") + span_words(jump);
}

std::string storage_words(const Values& values) {
    if (!values.contains("paused")) return values.value("text", "");
    if (!values.value("paused", false)) return "recording goes on";
    return "recording pauses, and goes on by itself when this is mended: " + values.value("reason", "");
}

std::string words_of(const Event& event) {
    const Values& values = event.values;
    switch (event.kind) {
        case EventKind::version:
            return values.value("name", "") + ' ' + values.value("version", "");
        case EventKind::config:
            return settings_words(values);
        case EventKind::connection:
            return values.value("connected", false) ? "connected" : "disconnected";
        case EventKind::motion:
            return motion_words(values);
        case EventKind::trigger:
        case EventKind::relay:
            return std::string(kind_name(event.kind)) + (active(values) ? " on" : " off");
        case EventKind::recording:
            return active(values) ? "marked for recording" : "recording mark ended";
        case EventKind::log:
            return log_words(values);
        case EventKind::state:
            return state_words(values);
        case EventKind::clock:
            return clock_step_words(values);
        case EventKind::storage:
            return storage_words(event.values);
        case EventKind::unknown:
            break;
    }
    return "unknown document: " + cut(values.value("text", ""), longest_document);
}

Weight weight_of_state(const Values& values) {
    const std::string state = values.value("state", "");
    return state == "live" || state == "off" ? Weight::fact : Weight::trouble;
}

Weight weight_of_log(const Event& event) {
    const bool told_as_state = event.camera == 0 && is_refusal(event.values.value("text", ""));
    return told_as_state || event.values.value("level", 0) < warning_level ? Weight::detail : Weight::trouble;
}

}  // namespace

Weight weight_of(const Event& event) {
    switch (event.kind) {
        case EventKind::config:
            return is_settled(event.values) ? Weight::fact : Weight::detail;
        case EventKind::motion:
            if (active(event.values)) return Weight::motion;
            return event.values.contains("seconds") ? Weight::minor : Weight::detail;
        case EventKind::log:
            return weight_of_log(event);
        case EventKind::state:
            return weight_of_state(event.values);
        case EventKind::clock:
        case EventKind::storage:
            return Weight::trouble;
        case EventKind::connection:  // the state says it better
        case EventKind::unknown:
            return Weight::detail;
        default:
            return Weight::fact;
    }
}

std::string event_words(const Event& event) {
    return printable(words_of(event));
}

std::string common_words(const Event& event) {
    if (event.values.contains("lost_block")) return "pictures lost: blocks did not arrive";
    if (event.kind == EventKind::motion && event.values.contains("seconds")) return "motion ended";
    return event_words(event);
}

std::string told_line(std::int64_t time_ms, const std::string& subject, const std::string& words) {
    return clock_words(time_ms) + "  " + (subject.empty() ? "" : subject + ": ") + words;
}

std::string human_line(const Event& event) {
    const std::string subject = event.camera == 0 ? "" : "camera " + std::to_string(event.camera);
    return told_line(event.time_ms, subject, event_words(event));
}

}  // namespace plendix
