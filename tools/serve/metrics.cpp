#include "serve/metrics.h"

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <utility>
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

/// One value without labels of its own, or several with some.
void put(std::string& text, const char* name, const char* type, const char* help,
         const std::vector<std::pair<const char*, double>>& values) {
    put_head(text, name, type, help);
    for (const auto& [labels, value] : values)
        text += std::string(name) + labels + ' ' + number(value) + '\n';
}

template <class Integer>
double real(Integer value) {
    return static_cast<double>(value);
}

void put_cameras(std::string& text, const std::vector<CameraState>& states, const LiveHub& hub) {
    for (const Family& family : families(hub, CameraState::Time::clock::now())) {
        put_head(text, family.name, family.type, family.help);
        for (const CameraState& state : states)
            text += family.name + labels_of(state) + ' ' + number(family.value(state)) + '\n';
    }
    put_head(text, "plendix_camera_info", "gauge",
             "1, with what the camera is; model and firmware are 0 until they are known");
    for (const CameraState& state : states) {
        std::string labels = labels_of(state);
        labels.pop_back();
        text += "plendix_camera_info" + labels + ",address=\"" + escaped(state.address) + "\",model=\"" +
                std::to_string(state.model) + "\",firmware=\"" + std::to_string(state.firmware) + "\"} 1\n";
    }
}

/// Each output of the session, as far as there is one.
void put_outputs(std::string& text, const LiveHub& hub, const ProcessNumbers& numbers) {
    const char* const viewers = "{output=\"viewers\"}";
    const char* const recording = "{output=\"recording\"}";
    std::vector<std::pair<const char*, double>> frames{{viewers, real(hub.given())}};
    std::vector<std::pair<const char*, double>> lost{
        {"{output=\"viewers\",reason=\"slow\"}", real(hub.lost())}};
    if (numbers.recording) {
        frames.emplace_back(recording, real(numbers.recording->recorded));
        lost.emplace_back("{output=\"recording\",reason=\"slow\"}", real(numbers.recording->lost_frames));
        lost.emplace_back("{output=\"recording\",reason=\"refused\"}",
                          real(numbers.recording->refused_frames));
    }
    put(text, "plendix_output_frames_total", "counter",
        "Pictures that an output has taken; of viewers, each for each of them", frames);
    put(text, "plendix_output_lost_frames_total", "counter",
        "Pictures that an output was too slow for, or that the disk refused", lost);
    put(text, "plendix_thumbnails_total", "counter", "Thumbnails made", {{"", real(numbers.thumbnails)}});
    put(text, "plendix_thumbnail_seconds_total", "counter", "Time that they took",
        {{"", numbers.thumbnail_seconds}});
    if (!numbers.recording) return;
    const RecorderNumbers& kept = *numbers.recording;
    put(text, "plendix_recording_written_bytes_total", "counter", "Bytes written",
        {{"", real(kept.written)}});
    put(text, "plendix_recording_kept_bytes", "gauge", "Bytes of closed segments",
        {{"", real(kept.kept_bytes)}});
    put(text, "plendix_recording_up", "gauge", "1 while the recording is written",
        {{"", kept.there && kept.paused.empty() ? 1.0 : 0.0}});
    if (kept.free_bytes)
        put(text, "plendix_recording_free_bytes", "gauge", "Room on the disk",
            {{"", real(*kept.free_bytes)}});
}

void put_http(std::string& text, const ProcessNumbers& numbers) {
    put(text, "plendix_http_requests_total", "counter", "Requests", {{"", real(numbers.requests)}});
    put(text, "plendix_http_refused_total", "counter", "Requests of those who may not ask",
        {{"", real(numbers.refused)}});
    put(text, "plendix_http_sent_bytes_total", "counter", "Bytes of responses", {{"", real(numbers.bytes)}});
    put(text, "plendix_http_connections", "gauge", "Connections now", {{"", real(numbers.connections)}});
    put(text, "plendix_http_streams", "gauge", "Responses that go on, now", {{"", real(numbers.streams)}});
}

/// Under the names that programs have in common.
void put_process(std::string& text) {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) { return real(time.tv_sec) + real(time.tv_usec) / 1e6; };
    put(text, "process_cpu_seconds_total", "counter", "Time of processors, of user and system",
        {{"", seconds(used.ru_utime) + seconds(used.ru_stime)}});
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm").ignore(64, ' ') >> pages;
    put(text, "process_resident_memory_bytes", "gauge", "Memory",
        {{"", real(pages) * real(sysconf(_SC_PAGESIZE))}});
}

}  // namespace

std::string metrics_text(const CameraBoard& board, const LiveHub& hub, const ProcessNumbers& numbers) {
    std::string text;
    put_head(text, "plendix_build_info", "gauge", "1, with the version of the command");
    text += "plendix_build_info{version=\"" + escaped(numbers.version) + "\"} 1\n";
    put(text, "plendix_driver_last_call_age_seconds", "gauge", "Time since the driver's worker called",
        {{"", numbers.seconds_since_call}});
    put(text, "plendix_driver_lost_documents_total", "counter", "Documents of the driver that found no room",
        {{"", real(numbers.lost_documents)}});
    put_cameras(text, board.states(), hub);
    put_outputs(text, hub, numbers);
    put_http(text, numbers);
    put_process(text);
    return text;
}

}  // namespace plendix
