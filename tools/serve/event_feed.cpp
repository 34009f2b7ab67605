#include "serve/event_feed.h"

#include <algorithm>

#include "host/event_json.h"
#include "host/plain_text.h"

namespace plendix {
namespace {

constexpr std::size_t most_items = 5000;
constexpr std::size_t most_bytes = 16U << 20U;  // of these: a document may be long
constexpr std::size_t most_lines = 500;

std::string without_numbers(const std::string& text) {
    std::string words;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit || words.empty() || words.back() != '#') words += digit ? '#' : c;
    }
    return words;
}

}  // namespace

EventFeed::EventFeed(std::uint64_t first_id) : next_id_(first_id) {}

void EventFeed::add(const Event& event) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        items_.push_back({next_id_++, kind_name(event.kind), json_line(event)});
        bytes_ += items_.back().json.size();
        while (items_.size() > most_items || (bytes_ > most_bytes && items_.size() > 1)) {
            bytes_ -= items_.front().json.size();
            items_.pop_front();
        }
    }
    stir();
}

/// Requires mutex_.
void EventFeed::drop_the_gone() {
    const auto gone = [](const Follower& follower) { return follower.token.expired(); };
    followers_.erase(std::remove_if(followers_.begin(), followers_.end(), gone), followers_.end());
}

void EventFeed::stir() {
    std::vector<Follower> followers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        drop_the_gone();
        followers = followers_;
    }
    for (const Follower& follower : followers)
        if (const auto here = follower.token.lock()) follower.wake();
}

EventFeed::Page EventFeed::after(std::uint64_t id, std::size_t most) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    Page page;
    const std::uint64_t oldest = items_.empty() ? next_id_ : items_.front().id;
    page.gap = id + 1 < oldest || id >= next_id_;
    const auto begin =
        page.gap ? items_.begin() : items_.begin() + static_cast<std::ptrdiff_t>(id + 1 - oldest);
    for (auto item = begin; item != items_.end() && page.items.size() < most; ++item)
        page.items.push_back(*item);
    return page;
}

std::uint64_t EventFeed::last_id() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return next_id_ - 1;
}

void EventFeed::follow(const std::weak_ptr<void>& token, std::function<void()> wake) {
    const std::lock_guard<std::mutex> lock(mutex_);
    drop_the_gone();
    followers_.push_back({token, std::move(wake)});
}

bool EventFeed::followed() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(followers_.begin(), followers_.end(),
                       [](const Follower& follower) { return !follower.token.expired(); });
}

void LogBook::add(const Event& event) {
    const std::string text = printable(event.values.value("text", ""));
    const std::string key = std::to_string(event.camera) + ' ' + without_numbers(text);
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = lines_.find(key);
    const std::uint64_t repeated = known == lines_.end() ? 0 : known->second.repeated + 1;
    lines_[key] = {++last_id_, event.time_ms, event.camera, text, repeated};
    if (lines_.size() <= most_lines) return;
    lines_.erase(std::min_element(lines_.begin(), lines_.end(), [](const auto& one, const auto& other) {
        return one.second.id < other.second.id;
    }));
}

nlohmann::ordered_json LogBook::after(std::uint64_t id) const {
    std::vector<Line> lines;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [key, line] : lines_)
            if (line.id > id) lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end(),
              [](const Line& one, const Line& other) { return one.id < other.id; });
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    for (const Line& line : lines)
        json.push_back({{"id", line.id},
                        {"time", utc_text(line.time_ms)},
                        {"camera", line.camera},
                        {"text", line.text},
                        {"repeated", line.repeated}});
    return {{"lines", json}};
}

}  // namespace plendix
