#include "serve/desk.h"

#include <algorithm>
#include <utility>

#include "host/document_builder.h"
#include "host/session.h"
#include "serve/page_message.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::int64_t longest_pending_ms = 5000;  // of a camera that delivers
constexpr std::int64_t undo_after_ms = 15000;
constexpr int alarm_action = 0;
constexpr double longest_relay_s = 86400;

constexpr const char* configured_address = "configured_address";

/// What is not wanted as configured, and of which camera.
nlohmann::json change_of(const CameraSettings& configured, const CameraSettings& wanted) {
    const auto all = settings_json(wanted);
    nlohmann::json change = nlohmann::json::object();
    for (const std::string& name : changed_names(configured, wanted))
        change[name] = all.at(name);
    return change;
}

CameraSettings patched_if_possible(const CameraSettings& camera, const nlohmann::json& change) {
    try {
        return patched(camera, change);
    } catch (const UsageError&) {
        return camera;
    }
}

/// Nothing where another camera had this number.
nlohmann::json own_change(const CameraSettings& camera, nlohmann::json change) {
    if (!change.is_object()) return nlohmann::json::object();
    const auto address = change.find(configured_address);
    if (address == change.end()) return change;
    if (*address != camera.address) return nlohmann::json::object();
    change.erase(address);
    return change;
}

}  // namespace

Desk::Desk(const std::vector<CameraSettings>& cameras, const nlohmann::json& changes) {
    for (const CameraSettings& camera : cameras) {
        Entry& here = entries_[camera.number];
        here.configured = here.wanted = camera;
        const auto change = changes.is_object() ? changes.find(std::to_string(camera.number)) : changes.end();
        if (change != changes.end()) here.wanted = patched_if_possible(camera, own_change(camera, *change));
    }
}

bool Desk::knows(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return entries_.count(camera) > 0;
}

Desk::Entry& Desk::entry(int camera) {
    const auto found = entries_.find(camera);
    if (found == entries_.end()) throw UsageError("camera " + std::to_string(camera) + " is not there");
    return found->second;
}

const Desk::Entry& Desk::entry(int camera) const {
    return const_cast<Desk*>(this)->entry(camera);
}

Desk::Status Desk::status(int camera) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const Entry& here = entry(camera);
    Status status{here.wanted, {}, {}, can_undo(here)};
    for (const auto& [name, wish] : here.wishes)
        status.pending.push_back(name);
    if (!here.reported) return status;
    for (const std::string& name : differing(here.wanted, *here.reported))
        if (here.wishes.count(name) == 0) status.differs.push_back(name);
    return status;
}

std::vector<CameraSettings> Desk::wanted() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<CameraSettings> cameras;
    for (const auto& [number, entry] : entries_)
        cameras.push_back(entry.wanted);
    return cameras;
}

void Desk::patch(int camera, const nlohmann::json& patch, std::int64_t now_ms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Entry& here = entry(camera);
    const CameraSettings settings = patched(here.wanted, patch);
    std::vector<CameraSettings> others;
    for (const auto& [number, other] : entries_)
        others.push_back(other.wanted);
    require_distinct(others, here.wanted, settings);
    change(here, settings, now_ms);
}

/// Requires mutex_.
void Desk::change(Entry& here, const CameraSettings& settings, std::int64_t now_ms) {
    const std::vector<std::string> names = changed_names(here.wanted, settings);
    if (names.empty()) return;
    const auto reported = here.reported ? settings_json(*here.reported) : nlohmann::ordered_json::object();
    for (const std::string& name : names)
        here.wishes[name] = {json_text(reported.value(name, nlohmann::ordered_json())), now_ms};
    if (!here.before || here.delivers) here.before = here.wanted;
    here.wanted = settings;
    here.changed_ms = now_ms;
    here.delivers = false;
    changed_ = unsaved_ = true;
}

bool Desk::undo(int camera, std::int64_t now_ms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Entry& here = entry(camera);
    if (!here.before) return false;
    change(here, CameraSettings(*here.before), now_ms);
    here.before.reset();
    return true;
}

/// Requires mutex_.
bool Desk::can_undo(const Entry& here) const {
    return here.before && here.wanted.enabled && !here.delivers &&
           learnt_ms_ - here.changed_ms >= undo_after_ms;
}

void Desk::set_relay(int camera, bool on, double seconds, std::int64_t now_ms) {
    if (!(seconds >= 0 && seconds <= longest_relay_s))
        throw UsageError("seconds: give a number from 0 to 86400");
    const std::lock_guard<std::mutex> lock(mutex_);
    entry(camera);
    const auto same = [camera](const Switching& other) { return other.camera == camera; };
    relays_.erase(std::remove_if(relays_.begin(), relays_.end(), same), relays_.end());
    relays_.push_back({camera, on, now_ms});
    if (seconds > 0) relays_.push_back({camera, !on, now_ms + static_cast<std::int64_t>(seconds * 1000)});
}

void Desk::set_recording(int camera, bool on) {
    const std::lock_guard<std::mutex> lock(mutex_);
    entry(camera);
    marks_.push_back({camera, on, 0});
}

nlohmann::ordered_json Desk::take_changes() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!std::exchange(unsaved_, false)) return nullptr;
    auto changes = nlohmann::ordered_json::object();
    for (const auto& [number, entry] : entries_)
        if (auto change = change_of(entry.configured, entry.wanted); !change.empty()) {
            change[configured_address] = entry.configured.address;
            changes[std::to_string(number)] = change;
        }
    return changes;
}

void Desk::replace(std::vector<CameraSettings> cameras) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::map<int, Entry> entries;
    for (CameraSettings& camera : cameras) {
        const auto old = entries_.find(camera.number);
        Entry& here = entries[camera.number];
        if (old != entries_.end() && old->second.configured.address == camera.address) here = old->second;
        const nlohmann::json change = change_of(here.configured, here.wanted);
        const bool known = here.configured.number != 0;
        here.configured = std::move(camera);
        here.wanted = known ? patched_if_possible(here.configured, change) : here.configured;
        here.before.reset();  // the last change was the file's
    }
    entries_ = std::move(entries);
    changed_ = unsaved_ = true;
}

/// What is to be switched by now, in that order.
std::vector<Desk::Switching> Desk::take_due_relays(std::int64_t now_ms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Switching> switchings;
    std::vector<Switching> later;
    for (const Switching& one : relays_)
        (one.at_ms > now_ms ? later : switchings).push_back(one);
    relays_ = std::move(later);
    return switchings;
}

void Desk::hand_over_cameras(Session& session) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!std::exchange(changed_, false)) return;
    }
    try {
        session.change(wanted());
    } catch (const Failure&) {
        const std::lock_guard<std::mutex> lock(mutex_);
        changed_ = true;
        throw;
    }
}

void Desk::work(Session& session, std::int64_t now_ms) {
    hand_over_cameras(session);
    for (const Switching& relay : take_due_relays(now_ms))
        session.write(relay_document(relay.camera, alarm_action, relay.on));
    std::vector<Switching> marks;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        marks.swap(marks_);
    }
    for (const Switching& mark : marks)
        session.write(recording_document(mark.camera, alarm_action, mark.on));
}

std::set<int> Desk::end_relays(Session& session) {
    std::set<int> cameras;
    for (const Switching& relay : take_due_relays(INT64_MAX)) {
        session.write(relay_document(relay.camera, alarm_action, relay.on));
        cameras.insert(relay.camera);
    }
    return cameras;
}

/// Which wishes have been answered.
void Desk::settle(Entry& here, bool live, std::int64_t now_ms) {
    if (!here.reported || here.wishes.empty()) return;
    const auto wanted = settings_json(here.wanted);
    const auto reported = settings_json(*here.reported);
    for (auto wish = here.wishes.begin(); wish != here.wishes.end();) {
        const auto& value = reported.at(wish->first);
        const auto& hoped = wanted.at(wish->first);
        // While it begins anew, a camera tells nothing of its size or rate, which is no answer.
        const bool told = !value.is_null() || hoped.is_null();
        const bool answered = value == hoped || (told && json_text(value) != wish->second.reported_before);
        const bool over = live && now_ms - wish->second.since_ms > longest_pending_ms;
        wish = answered || over ? here.wishes.erase(wish) : std::next(wish);
    }
}

void Desk::learn(const std::vector<CameraState>& states, const std::map<int, ReportedCamera>& reports,
                 std::int64_t now_ms) {
    const std::lock_guard<std::mutex> lock(mutex_);
    learnt_ms_ = now_ms;
    for (const CameraState& state : states) {
        const auto found = entries_.find(state.number);
        if (found == entries_.end()) continue;
        Entry& here = found->second;
        if (const auto report = reports.find(state.number); report != reports.end())
            here.reported = report->second.settings;
        const auto last_ms =
            state.last_frame
                ? std::chrono::duration_cast<std::chrono::milliseconds>(state.last_frame->time_since_epoch())
                      .count()
                : 0;
        // What was under way when the change went out may still come.
        if (last_ms > here.changed_ms + 2000) here.delivers = true;
        settle(here, state.condition == CameraCondition::live, now_ms);
    }
}

}  // namespace plendix
