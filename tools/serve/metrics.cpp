#include "serve/metrics.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <vector>

#include "host/clocks.h"
#include "host/plain_text.h"
#include "serve/camera_board.h"
#include "serve/live_hub.h"

namespace plendix {
namespace {

/// A label's value between its quotes.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : printable(text)) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result;
}

std::string labels_of(const CameraState& state) {
    return "{camera=\"" + std::to_string(state.number) + "\",name=\"" + escaped(state.name) + "\"}";
}

std::string number(double value) {
    if (std::isnan(value)) return "NaN";
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.15g", value);
    return text.data();
}

void put_head(std::string& text, const std::string& name, const char* type, const char* help) {
    text += "# HELP " + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

struct Family {
    const char* name;
    const char* type;
    const char* help;
    std::function<double(const CameraState&)> value;
};

template <class Number>
std::function<double(const CameraState&)> counter(Number CameraState::*member) {
    return [member](const CameraState& state) { return static_cast<double>(state.*member); };
}

std::vector<Family> families(const LiveHub& hub, CameraState::Time now) {
    return {
        {"plendix_camera_up", "gauge", "1 while the camera sends pictures",
         [](const CameraState& state) { return state.condition == CameraCondition::live ? 1.0 : 0.0; }},
        {"plendix_camera_enabled", "gauge", "1 unless the camera is switched off",
         [](const CameraState& state) { return state.condition == CameraCondition::off ? 0.0 : 1.0; }},
        {"plendix_camera_refused", "gauge", "1 while the driver refuses the camera's model or firmware",
         [](const CameraState& state) { return state.condition == CameraCondition::refused ? 1.0 : 0.0; }},
        {"plendix_camera_frames_total", "counter", "Pictures delivered", counter(&CameraState::frames)},
        {"plendix_camera_bytes_total", "counter", "Bytes of these pictures", counter(&CameraState::bytes)},
        {"plendix_camera_key_frames_total", "counter", "Pictures that a decoder can begin with",
         counter(&CameraState::key_frames)},
        {"plendix_camera_lost_frames_total", "counter", "Pictures given up for a missing block",
         counter(&CameraState::lost_blocks)},
        {"plendix_camera_timeouts_total", "counter", "Transfers that stalled",
         counter(&CameraState::timeouts)},
        {"plendix_camera_connections_total", "counter", "Beginnings of video",
         counter(&CameraState::connections)},
        {"plendix_camera_motion_events_total", "counter", "Beginnings of motion",
         counter(&CameraState::motion_events)},
        {"plendix_camera_last_frame_age_seconds", "gauge",
         "Time since the last picture; NaN before the first",
         [now](const CameraState& state) {
             return state.last_frame ? std::chrono::duration<double>(now - *state.last_frame).count()
                                     : std::numeric_limits<double>::quiet_NaN();
         }},
        {"plendix_camera_viewers", "gauge", "Live streams of the camera",
         [&hub](const CameraState& state) { return static_cast<double>(hub.viewers(state.number)); }},
    };
}

}  // namespace

std::string metrics_text(const CameraBoard& board, const LiveHub& hub, const ProcessNumbers& numbers) {
    std::string text;
    const auto states = board.states();
    for (const Family& family : families(hub, CameraState::Time::clock::now())) {
        put_head(text, family.name, family.type, family.help);
        for (const CameraState& state : states)
            text += family.name + labels_of(state) + ' ' + number(family.value(state)) + '\n';
    }
    const auto put = [&text](const char* name, const char* type, const char* help, double value) {
        put_head(text, name, type, help);
        text += std::string(name) + ' ' + number(value) + '\n';
    };
    put_head(text, "plendix_build_info", "gauge", "1, with the version of the command");
    text += "plendix_build_info{version=\"" + escaped(numbers.version) + "\"} 1\n";
    put("plendix_driver_last_call_age_seconds", "gauge", "Time since the driver's worker called",
        numbers.seconds_since_call);
    put("plendix_driver_lost_documents_total", "counter", "Documents of the driver that found no room",
        static_cast<double>(numbers.lost_documents));
    put("plendix_http_requests_total", "counter", "Requests", static_cast<double>(numbers.requests));
    put("plendix_http_refused_total", "counter", "Requests of those who may not ask",
        static_cast<double>(numbers.refused));
    put("plendix_http_sent_bytes_total", "counter", "Bytes of responses", static_cast<double>(numbers.bytes));
    put("plendix_http_connections", "gauge", "Connections now", static_cast<double>(numbers.connections));
    put("plendix_http_streams", "gauge", "Responses that go on, now", static_cast<double>(numbers.streams));
    return text;
}

}  // namespace plendix
