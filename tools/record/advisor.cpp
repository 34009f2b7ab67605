#include "record/advisor.h"

#include <algorithm>

#include "host/diagnosis.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

constexpr auto grace = 5s;  // for a camera that is just starting
constexpr auto patience = 1500ms;
constexpr std::ptrdiff_t most_at_once = 8;

bool waits(const std::future<std::string>& answer) {
    return answer.valid() && answer.wait_for(0s) != std::future_status::ready;
}

}  // namespace

std::vector<std::string> Advisor::advise(const std::vector<CameraState>& cameras, Time now) {
    std::vector<std::string> lines;
    for (const CameraState& camera : cameras) {
        const auto asked = questions_.find(camera.number);
        if (asked != questions_.end() && asked->second.answer.valid()) {
            if (waits(asked->second.answer)) continue;
            lines.push_back(asked->second.prefix + asked->second.answer.get());
        }
        const bool without =
            camera.condition == CameraCondition::connecting || camera.condition == CameraCondition::silent;
        if (!without && asked != questions_.end()) questions_.erase(asked);
        if (!without || asked != questions_.end() || now - camera.since < grace) continue;
        const auto running = std::count_if(questions_.begin(), questions_.end(),
                                           [](const auto& each) { return waits(each.second.answer); });
        if (running >= most_at_once) continue;
        questions_[camera.number] = {"camera " + std::to_string(camera.number) + ": ",
                                     std::async(std::launch::async, [address = camera.address] {
                                         return diagnose(address, patience);
                                     })};
    }
    return lines;
}

}  // namespace plendix
