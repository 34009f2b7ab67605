#include "host/event_json.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>

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

}  // namespace plendix
