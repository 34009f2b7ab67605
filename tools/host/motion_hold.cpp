#include "host/motion_hold.h"

namespace plendix {

static constexpr int last_camera = 255;  // bounds the memory, whatever a document says

std::vector<Event> MotionHold::take(const Event& event, Time now) {
    if (hold_.count() <= 0 || event.camera < 1 || event.camera > last_camera) return {event};
    std::vector<Event> told = due(now);
    if (event.kind == EventKind::motion) {
        take_motion(event, now, told);
        return told;
    }
    const auto known = motions_.find(event.camera);
    const bool gone = event.kind == EventKind::config && event.values.contains("removed");
    const bool lost = event.kind == EventKind::connection && !event.values.value("connected", false);
    if (known != motions_.end() && (gone || lost)) stop(known->second, event, now);
    told.push_back(event);
    return told;
}

void MotionHold::take_motion(const Event& event, Time now, std::vector<Event>& told) {
    const bool active = event.values.value("active", false);
    const auto known = motions_.find(event.camera);
    if (known == motions_.end()) {
        if (active) motions_[event.camera].began = now;
        told.push_back(event);
    } else if (active) {
        known->second.active = true;
    } else {
        stop(known->second, event, now);
    }
}

void MotionHold::stop(Motion& motion, const Event& event, Time now) {
    if (!motion.active) return;
    motion.active = false;
    motion.ended = now;
    motion.end = {event.time_ms, event.camera, EventKind::motion};
}

Event MotionHold::ending(const Motion& motion) {
    const auto lasted = std::chrono::duration_cast<std::chrono::milliseconds>(motion.ended - motion.began);
    Event event = motion.end;
    event.values["active"] = false;
    event.values["seconds"] = static_cast<double>(lasted.count()) / 1000;
    return event;
}

std::vector<Event> MotionHold::due(Time now) {
    std::vector<Event> told;
    for (auto motion = motions_.begin(); motion != motions_.end();) {
        const bool over = !motion->second.active && now - motion->second.ended >= hold_;
        if (over) told.push_back(ending(motion->second));
        motion = over ? motions_.erase(motion) : std::next(motion);
    }
    return told;
}

std::vector<Event> MotionHold::flush() {
    return due(Time::max());
}

std::set<int> MotionHold::moving() const {
    std::set<int> cameras;
    for (const auto& [camera, motion] : motions_)
        cameras.insert(camera);
    return cameras;
}

}  // namespace plendix
