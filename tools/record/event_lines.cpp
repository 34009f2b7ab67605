#include "record/event_lines.h"

#include <algorithm>

#include "host/words.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds moment{1};     // what comes within it is one line
constexpr std::chrono::seconds pause{10};     // between two lines of the same words
constexpr std::chrono::seconds patience{20};  // of events that find no room
constexpr std::chrono::minutes period{1};
constexpr std::size_t most_groups = 200;
constexpr std::size_t camera_columns = 40;

/// Lines in the last minute, above which none of this weight is added. Together with the line about
/// what was left out it is less than one a second.
std::size_t limit(Weight weight) {
    switch (weight) {
        case Weight::detail:
        case Weight::minor:
            return 12;
        case Weight::motion:
            return 25;
        case Weight::fact:
            return 40;
        case Weight::trouble:
            break;
    }
    return 56;
}

void sort_by_time(std::vector<EventLine>& lines) {
    std::stable_sort(lines.begin(), lines.end(), [](const EventLine& one, const EventLine& other) {
        return one.time_ms < other.time_ms;
    });
}

}  // namespace

void EventLines::add(const Event& event, Weight weight, Time now) {
    const std::string words = common_words(event);
    const std::int64_t repeated = event.values.value("repeated", std::int64_t{1});
    if (groups_.size() >= most_groups && groups_.count(words) == 0) {
        left_out_ += repeated;
        return;
    }
    Group& group = groups_[words];
    if (group.events == 0) group.opened = now;
    group.weight = std::max(group.weight, weight);
    group.events += repeated;
    group.cameras.insert(event.camera);
    group.time_ms = event.time_ms;
    group.words = event_words(event);
}

std::vector<EventLine> EventLines::due(Time now) {
    forget(now);
    std::vector<EventLine> lines;
    for (const Weight weight :
         {Weight::trouble, Weight::fact, Weight::motion, Weight::minor, Weight::detail}) {
        for (auto next = groups_.begin(); next != groups_.end();) {
            const auto& [words, group] = *next;
            const bool wanted = group.weight == weight && ready(words, group, now);
            if (wanted && room_for(weight)) {
                tell(words, group, now, lines);
                next = groups_.erase(next);
            } else if (wanted && now - group.opened >= patience) {
                left_out_ += group.events;
                next = groups_.erase(next);
            } else {
                ++next;
            }
        }
    }
    sort_by_time(lines);
    tell_left_out(now, lines);
    return lines;
}

std::vector<EventLine> EventLines::flush(Time now) {
    std::vector<EventLine> lines;
    for (const auto& [words, group] : groups_)
        if (group.weight > Weight::minor) tell(words, group, now, lines);
    groups_.clear();
    sort_by_time(lines);
    return lines;
}

bool EventLines::ready(const std::string& words, const Group& group, Time now) const {
    const auto told = told_.find(words);
    return now - group.opened >= moment && (told == told_.end() || now - told->second >= pause);
}

bool EventLines::room_for(Weight weight) const {
    return minute_.size() < limit(weight);
}

void EventLines::tell(const std::string& words, const Group& group, Time now, std::vector<EventLine>& lines) {
    std::set<int> cameras = group.cameras;
    cameras.erase(0);
    const std::string subject = cameras.empty() ? "" : camera_words(cameras, camera_columns);
    std::string text = group.events == 1 ? group.words : words;
    const auto each = static_cast<std::int64_t>(group.cameras.size());
    if (group.events > each) text += " (" + std::to_string(group.events) + " times)";
    lines.push_back({group.weight, told_line(group.time_ms, subject, text), group.time_ms});
    told_[words] = now;
    minute_.push_back(now);
}

void EventLines::tell_left_out(Time now, std::vector<EventLine>& lines) {
    if (left_out_ == 0 || now - left_out_told_ < period) return;
    const std::string text = "and " + std::to_string(left_out_) + " events more, in events.jsonl";
    lines.push_back({Weight::fact, std::string(10, ' ') + text, 0});
    left_out_ = 0;
    left_out_told_ = now;
    minute_.push_back(now);
}

void EventLines::forget(Time now) {
    while (!minute_.empty() && now - minute_.front() >= period)
        minute_.pop_front();
    for (auto told = told_.begin(); told != told_.end();)
        told = now - told->second >= pause ? told_.erase(told) : std::next(told);
}

}  // namespace plendix
