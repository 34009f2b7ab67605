#include "record/advisor.h"

#include <algorithm>
#include <utility>

#include "host/clocks.h"
#include "host/diagnosis.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

constexpr auto grace_at_start = 5s;  // for a camera that is just coming up
constexpr auto grace_later = 30s;    // the driver connects again after 10 s
constexpr auto patience = 1500ms;
constexpr auto repetition = 10min;
constexpr std::ptrdiff_t most_a_minute = 5;

}  // namespace

std::vector<Event> Advisor::advise(const std::vector<CameraState>& cameras, Time now) {
    const auto answered = [](const auto& answer) { return answer.wait_for(0s) == std::future_status::ready; };
    unwanted_.erase(std::remove_if(unwanted_.begin(), unwanted_.end(), answered), unwanted_.end());
    std::vector<Event> events;
    for (const CameraState& camera : cameras) {
        forget_others(camera);
        const std::string answer = answer_of(camera.number);
        if (!answer.empty() && camera.condition != CameraCondition::live) {
            events.push_back({utc_ms(), camera.number, EventKind::state});
            events.back().values["diagnosis"] = answer;
        }
        if (!due(camera, now) || busy(now)) continue;
        questions_[camera.number] = {camera.address, diagnose_aside(camera.address, patience), now};
    }
    return events;
}

/// What was asked of another address is nothing to this camera.
void Advisor::forget_others(const CameraState& camera) {
    const auto asked = questions_.find(camera.number);
    if (asked == questions_.end() || asked->second.address == camera.address) return;
    if (asked->second.answer.valid()) unwanted_.push_back(std::move(asked->second.answer));
    questions_.erase(asked);
}

std::string Advisor::answer_of(int camera) {
    const auto asked = questions_.find(camera);
    if (asked == questions_.end() || !asked->second.answer.valid()) return {};
    if (asked->second.answer.wait_for(0s) != std::future_status::ready) return {};
    return asked->second.answer.get();
}

bool Advisor::due(const CameraState& camera, Time now) const {
    const auto asked = questions_.find(camera.number);
    if (asked != questions_.end()) {
        const bool since_then = camera.last_frame && *camera.last_frame > asked->second.asked;
        if (!since_then || now - asked->second.asked < repetition) return false;
    }
    if (camera.condition == CameraCondition::connecting) return now - camera.since > grace_at_start;
    return camera.condition == CameraCondition::silent && now - camera.since > grace_later;
}

bool Advisor::busy(Time now) const {
    const auto recent = [now](const auto& each) { return now - each.second.asked < 1min; };
    return std::count_if(questions_.begin(), questions_.end(), recent) >= most_a_minute;
}

}  // namespace plendix
