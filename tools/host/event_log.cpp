#include "host/event_log.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <ostream>

#include "usage.h"

namespace plendix {

const char* kind_name(EventKind kind) {
    switch (kind) {
        case EventKind::version:
            return "version";
        case EventKind::config:
            return "config";
        case EventKind::connection:
            return "connection";
        case EventKind::motion:
            return "motion";
        case EventKind::trigger:
            return "trigger";
        case EventKind::relay:
            return "relay";
        case EventKind::recording:
            return "recording";
        case EventKind::log:
            return "log";
        case EventKind::state:
            return "state";
        case EventKind::clock:
            return "clock";
        case EventKind::storage:
            return "storage";
        case EventKind::unknown:
            break;
    }
    return "unknown";
}

std::string utc_text(std::int64_t time_ms) {
    const auto seconds = static_cast<std::time_t>(time_ms / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(time_ms % 1000));
    return text.data();
}

std::string json_line(const Event& event) {
    const nlohmann::ordered_json line{{"time", utc_text(event.time_ms)},
                                      {"camera", event.camera},
                                      {"kind", kind_name(event.kind)},
                                      {"values", event.values}};
    // A camera's name need not be UTF-8: bytes that are none become U+FFFD.
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

namespace {

std::string who(const Event& event) {
    return event.camera == 0 ? "plug-in" : "camera " + std::to_string(event.camera);
}

/// "settings  1600x1184 H.264 20 fps, model 105, firmware 61750"
std::string settings_text(const nlohmann::ordered_json& values) {
    if (values.contains("removed")) return "removed";
    std::string text = "settings  ";
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

std::string text_of(const Event& event) {
    if (event.kind == EventKind::config) return settings_text(event.values);
    std::string line = kind_name(event.kind);
    for (const auto& [name, value] : event.values.items()) {
        if (value.is_boolean()) {
            line += (value.get<bool>() ? "  " : "  not ") + name;
        } else if (name == "text") {
            line += "  " + value.get<std::string>();
        } else {
            line += "  " + name + ' ' + (value.is_string() ? value.get<std::string>() : value.dump());
        }
    }
    return line;
}

}  // namespace

std::string human_line(const Event& event) {
    return utc_text(event.time_ms).substr(11, 12) + "  " + who(event) + "  " + text_of(event);
}

void ScreenLog::write(std::ostream& out, const Event& event) {
    if (event.kind == EventKind::config) {
        const std::string text = text_of(event);
        std::string& printed = settings_[event.camera];
        if (printed == text) return;
        printed = text;
    }
    out << human_line(event) << '\n';
}

EventLog::EventLog(const std::filesystem::path& file) : path_(file), file_(file, std::ios::trunc) {
    if (!file_) throw Failure("cannot write '" + path_.string() + "'");
}

void EventLog::write(const Event& event) {
    file_ << json_line(event) << '\n' << std::flush;
    if (!file_) throw Failure("cannot write '" + path_.string() + "'");
}

}  // namespace plendix
