#include "host/camera_watch.h"

#include <algorithm>

namespace plendix {
namespace {

constexpr std::chrono::seconds longest_pause{5};  // a camera sends at least one picture a second

using Time = CameraState::Time;

CameraCondition condition_of(const CameraState& state, bool wanted, bool refused, Time now) {
    if (!wanted) return CameraCondition::off;
    if (refused) return CameraCondition::refused;
    if (!state.last_frame) return CameraCondition::connecting;
    return now - *state.last_frame > longest_pause ? CameraCondition::silent : CameraCondition::live;
}

/// "Model 150 is not supported", "Version 61704 is not supported": the number is all they tell.
bool speaks_of(const std::string& refusal, const CameraState& state) {
    return refusal.find("Model " + std::to_string(state.model) + ' ') == 0 ||
           refusal.find("Version " + std::to_string(state.firmware) + ' ') == 0;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

const char* condition_name(CameraCondition condition) {
    switch (condition) {
        case CameraCondition::off:
            return "off";
        case CameraCondition::connecting:
            return "connecting";
        case CameraCondition::live:
            return "live";
        case CameraCondition::silent:
            return "silent";
        case CameraCondition::refused:
            return "refused";
    }
    return "";
}

std::string live_of(const std::vector<CameraState>& cameras) {
    const auto live = std::count_if(cameras.begin(), cameras.end(), [](const CameraState& camera) {
        return camera.condition == CameraCondition::live;
    });
    return std::to_string(live) + " of " + std::to_string(cameras.size()) + " cameras live";
}

/// What was known before it was switched off is no word on how it is now.
void CameraWatch::begin_again(Camera& camera, Time now) const {
    camera.enabled = true;
    camera.refusals_before = refusal_count_;
    camera.state.last_frame.reset();
    camera.state.condition = CameraCondition::connecting;
    camera.state.since = now;
    camera.state.since_ms = 0;
    camera.state.refusal.clear();
}

void CameraWatch::watch(const std::vector<CameraSettings>& cameras, Time now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::map<int, Camera> before;
    before.swap(cameras_);
    for (const CameraSettings& settings : cameras) {
        const auto known = before.find(settings.number);
        if (known != before.end() && known->second.settings.address == settings.address) {
            Camera& camera = cameras_.insert(*known).first->second;
            if (settings.enabled && !camera.settings.enabled) begin_again(camera, now);
            camera.settings = settings;
            camera.state.name = settings.name;
            continue;
        }
        Camera& camera = cameras_[settings.number];
        camera.settings = settings;
        camera.refusals_before = refusal_count_;
        camera.state.number = settings.number;
        camera.state.name = settings.name;
        camera.state.address = settings.address;
        camera.state.condition = settings.enabled ? CameraCondition::connecting : CameraCondition::off;
        camera.state.since = now;
        camera.state.watched_since = now;
    }
}

bool CameraWatch::frame(const Frame& frame, Time now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = cameras_.find(frame.camera);
    if (found == cameras_.end()) return false;
    CameraState& state = found->second.state;
    if (!state.first_frame) state.first_frame = now;
    state.last_frame = now;
    ++state.frames;
    state.bytes += frame.data.size();
    if (frame.key) ++state.key_frames;
    const bool changed = frame.recording != found->second.marked;
    found->second.marked = frame.recording;
    return changed;
}

bool CameraWatch::event(const Event& event, Time now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (event.kind == EventKind::log) {
        const std::string text = event.values.value("text", "");
        if (ends_with(text, " is not supported")) {
            refusals_.insert(text);
            ++refusal_count_;
            return true;
        }
    }
    const auto found = cameras_.find(event.camera);
    if (found == cameras_.end()) return false;
    CameraState& state = found->second.state;
    if (event.kind == EventKind::config) learn_configuration(found->second, event);
    if (event.kind == EventKind::motion && event.values.value("active", false)) ++state.motion_events;
    if (event.kind == EventKind::connection && event.values.value("connected", false)) ++state.connections;
    const bool lost = event.values.contains("lost_block");
    const bool stalled = event.values.contains("timeout");
    if (lost) ++state.lost_blocks;
    if (stalled) ++state.timeouts;
    if (lost || stalled) state.last_loss = now;
    return false;
}

void CameraWatch::learn_configuration(Camera& camera, const Event& event) {
    CameraState& state = camera.state;
    if (event.values.contains("removed") || event.values.value("address", "") != state.address) return;
    camera.enabled = event.values.value("enabled", true);
    state.model = event.values.value("model", 0);
    state.firmware = event.values.value("firmware", 0);
    state.codec = event.values.value("codec", "") == "h264" ? FrameCodec::h264 : FrameCodec::jpeg;
    state.width = event.values.value("width", 0);
    state.height = event.values.value("height", 0);
}

std::vector<Event> CameraWatch::settle(Time now, std::int64_t time_ms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Event> events;
    for (auto& [number, camera] : cameras_) {
        CameraState& state = camera.state;
        // A camera that is wanted is also off in what the driver sent before it was switched on.
        const bool refused = !camera.enabled && refusal_count_ > camera.refusals_before;
        const CameraCondition condition = condition_of(state, camera.settings.enabled, refused, now);
        if (state.since_ms == 0) state.since_ms = time_ms;
        if (condition != state.condition) events.push_back(change(state, condition, now, time_ms));
    }
    return events;
}

Event CameraWatch::change(CameraState& state, CameraCondition condition, Time now,
                          std::int64_t time_ms) const {
    Event event{time_ms, state.number, EventKind::state};
    event.values["state"] = condition_name(condition);
    if (condition == CameraCondition::live && state.condition == CameraCondition::silent)
        event.values["seconds_without"] =
            std::chrono::duration_cast<std::chrono::seconds>(now - state.since).count();
    state.condition = condition;
    state.since = condition == CameraCondition::silent ? *state.last_frame : now;
    state.since_ms =
        time_ms - std::chrono::duration_cast<std::chrono::milliseconds>(now - state.since).count();
    state.refusal = condition == CameraCondition::refused ? refusal_of(state) : "";
    if (!state.refusal.empty()) event.values["reason"] = state.refusal;
    return event;
}

/// The driver's words; it may have forgotten the camera's model by the time it is asked.
std::string CameraWatch::refusal_of(const CameraState& state) const {
    for (const std::string& refusal : refusals_)
        if (speaks_of(refusal, state)) return refusal;
    return refusals_.size() == 1 ? *refusals_.begin() : "";
}

std::vector<CameraState> CameraWatch::states() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<CameraState> states;
    for (const auto& [number, camera] : cameras_)
        states.push_back(camera.state);
    return states;
}

}  // namespace plendix
