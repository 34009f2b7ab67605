#include "serve/camera_board.h"

#include <algorithm>

#include "host/clocks.h"
#include "host/diagnosis.h"
#include "host/event_json.h"
#include "serve/desk.h"
#include "serve/live_hub.h"
#include "serve/page_message.h"

namespace plendix {
namespace {

using nlohmann::ordered_json;

constexpr int most_zones = 8;
constexpr double whole_side = 10000;
constexpr std::chrono::milliseconds texts_life{250};

template <class Value>
ordered_json known(Value value) {
    return value == Value{} ? ordered_json() : ordered_json(value);
}

ordered_json flag(const std::optional<bool>& value) {
    return value ? ordered_json(*value) : ordered_json();
}

/// Behind the camera's title, which the reader sees anyway.
std::string reason_of(const CameraState& state, const std::string& diagnosis) {
    const std::string line = trouble_line(state, diagnosis);
    const std::string title = title_of(state) + ": ";
    return line.compare(0, title.size(), title) == 0 ? line.substr(title.size()) : line;
}

/// Zones count from the sensor's corner, the picture begins where its crop does. One side, in parts of the
/// picture's: how many zones there are, where the first begins, how long each is.
struct ZoneSide {
    int count = 0;
    double begin = 0, length = 0;

    ZoneSide(int picture, int zone, int crop_begin, int crop_length) {
        const double crop = std::clamp(crop_length / whole_side, 1 / whole_side, 1.0);
        const double sensor = picture / crop;
        begin = -crop_begin / whole_side / crop;
        length = static_cast<double>(zone) / picture;
        // The picture is cut to whole steps of pixels, the zones are not.
        constexpr double step = 32;
        count = std::min(static_cast<int>((sensor + step) / zone), most_zones);
    }
};

ordered_json zones_of(const ReportedCamera& report) {
    const CameraSettings& settings = report.settings;
    if (report.zone_width <= 0 || report.zone_height <= 0 || settings.width <= 0 || settings.height <= 0)
        return nullptr;
    const Crop& crop = settings.crop;
    const ZoneSide across(settings.width, report.zone_width, crop.left, crop.width);
    const ZoneSide down(settings.height, report.zone_height, crop.top, crop.height);
    return {{"columns", across.count}, {"rows", down.count},     {"left", across.begin},
            {"top", down.begin},       {"width", across.length}, {"height", down.length}};
}

ordered_json counters_of(const CameraState& state) {
    return {{"frames", state.frames},           {"bytes", state.bytes},
            {"key_frames", state.key_frames},   {"motion_events", state.motion_events},
            {"lost_blocks", state.lost_blocks}, {"timeouts", state.timeouts},
            {"connections", state.connections}};
}

}  // namespace

void CameraBoard::note(const Event& event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(event.camera);
    if (found == entries_.end()) return;
    Entry& entry = found->second;
    const bool active = event.values.value("active", false);
    if (event.kind == EventKind::motion) entry.motion = active;
    if (event.kind == EventKind::trigger) entry.trigger = active;
    if (event.kind == EventKind::relay) entry.relay = active;
    if (event.kind == EventKind::recording) entry.marked = active;
    if (event.kind == EventKind::state) entry.diagnosis = event.values.value("diagnosis", "");
}

void CameraBoard::update(const std::vector<CameraState>& states, const std::map<int, ReportedCamera>& reports,
                         CameraState::Time now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        const bool there = std::any_of(states.begin(), states.end(), [&entry](const CameraState& state) {
            return state.number == entry->first && state.address == entry->second.state.address;
        });
        entry = there ? std::next(entry) : entries_.erase(entry);
    }
    for (const CameraState& state : states) {
        Entry& entry = entries_[state.number];
        entry.state = state;
        const auto report = reports.find(state.number);
        entry.report = report == reports.end() ? std::nullopt : std::optional(report->second);
        entry.history.add(state, entry.motion, now);
    }
}

std::vector<CameraState> CameraBoard::states() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<CameraState> states;
    for (const auto& [number, entry] : entries_)
        states.push_back(entry.state);
    return states;
}

bool CameraBoard::ready() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::all_of(entries_.begin(), entries_.end(), [](const auto& each) {
        const CameraCondition condition = each.second.state.condition;
        return condition == CameraCondition::live || condition == CameraCondition::off;
    });
}

/// Requires mutex_.
ordered_json CameraBoard::summary(const Entry& entry) const {
    const CameraState& state = entry.state;
    // What was there before it was switched off, or of another camera of this number, is none of its own.
    const FramePointer newest = state.last_frame ? hub_.newest(state.number) : nullptr;
    const auto now_ms = milliseconds_of(CameraState::Time::clock::now());
    const std::string reason = reason_of(state, entry.diagnosis);
    const std::string serial = entry.report ? entry.report->serial : "";
    const bool sized = newest != nullptr && state.width > 0 && state.height > 0;
    return {
        {"number", state.number},
        {"name", state.name},
        {"address", state.address},
        {"state", condition_name(state.condition)},
        {"since", utc_text(state.since_ms)},
        {"reason", known(reason)},
        {"model", known(state.model)},
        {"firmware", known(state.firmware)},
        {"serial", known(serial)},
        {"codec", sized ? ordered_json(newest->codec == FrameCodec::jpeg ? "jpeg" : "h264") : ordered_json()},
        {"width", sized ? ordered_json(state.width) : ordered_json()},
        {"height", sized ? ordered_json(state.height) : ordered_json()},
        {"rate", entry.history.rate()},
        {"age_ms", newest ? ordered_json(now_ms - newest->arrival_ms) : ordered_json()},
        {"motion", entry.motion},
        {"trigger", flag(entry.trigger)},
        {"relay", flag(entry.relay)},
        {"recording", entry.marked},
        {"recorded", recorded_},
        {"zones", entry.report ? zones_of(*entry.report) : ordered_json()},
        {"counters", counters_of(state)}};
}

ordered_json CameraBoard::summary(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(camera);
    return found == entries_.end() ? ordered_json() : summary(found->second);
}

std::vector<ordered_json> CameraBoard::summaries() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<ordered_json> all;
    for (const auto& [number, entry] : entries_)
        all.push_back(summary(entry));
    return all;
}

std::shared_ptr<const CameraBoard::Texts> CameraBoard::summary_texts() const {
    const std::lock_guard<std::mutex> lock(texts_mutex_);
    const auto now = CameraState::Time::clock::now();
    if (texts_ && now - texts_made_ < texts_life) return texts_;
    auto texts = std::make_shared<Texts>();
    for (const ordered_json& camera : summaries())
        texts->emplace_back(camera["number"].get<int>(), json_text(camera));
    texts_made_ = now;
    return texts_ = std::move(texts);
}

ordered_json CameraBoard::detail(int camera) const {
    std::optional<ReportedCamera> report;
    ordered_json json;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = entries_.find(camera);
        if (found == entries_.end()) return nullptr;
        json = summary(found->second);
        report = found->second.report;
    }
    const Desk::Status status = desk_.status(camera);
    json["settings"] = settings_json(status.wanted);
    json["reported"] = report ? settings_json(report->settings) : ordered_json();
    json["pending"] = status.pending;
    json["differs"] = status.differs;
    json["undo"] = status.undo;
    return json;
}

ordered_json CameraBoard::history(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(camera);
    return found == entries_.end() ? ordered_json()
                                   : found->second.history.json(CameraState::Time::clock::now(), utc_ms());
}

}  // namespace plendix
