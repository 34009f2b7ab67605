#include "host/event_digest.h"

#include <cctype>

namespace plendix {
namespace {

constexpr std::chrono::minutes period{1};
constexpr std::chrono::seconds look_period{1};
constexpr std::size_t most_kinds = 2000;  // of lines within a minute; those that follow count as one kind
constexpr std::size_t longest_key = 100;

/// So many of one camera and kind pass in a minute; 0: all.
int allowance(EventKind kind) {
    switch (kind) {
        case EventKind::log:
        case EventKind::unknown:
            return 1;
        case EventKind::connection:
        case EventKind::state:
            return 6;
        case EventKind::motion:
            return 8;
        default:
            return 0;
    }
}

/// The text with its numbers taken out.
std::string wording(const std::string& text) {
    std::string words;
    for (const char c : text) {
        if (words.size() == longest_key) break;
        const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (!digit) words += c;
        if (digit && (words.empty() || words.back() != '#')) words += '#';
    }
    return words;
}

std::string key_of(const Event& event) {
    return std::to_string(event.camera) + ' ' + kind_name(event.kind) + ' ' +
           wording(event.values.value("text", ""));
}

Event summary(Event event, int repeated) {
    if (repeated > 1) event.values["repeated"] = repeated;
    return event;
}

}  // namespace

std::vector<Event> EventDigest::take(const Event& event, Time now) {
    const int most = allowance(event.kind);
    if (most == 0) return {event};
    std::vector<Event> told = due(now);
    Kind& kind = kind_of(event, now);
    if (kind.passed < most) {
        ++kind.passed;
        told.push_back(event);
    } else {
        ++kind.held;
        kind.last = event;
    }
    return told;
}

EventDigest::Kind& EventDigest::kind_of(const Event& event, Time now) {
    const std::string key = key_of(event);
    const auto known = kinds_.find(key);
    if (known != kinds_.end()) return known->second;
    Kind& kind = kinds_[kinds_.size() < most_kinds ? key : std::string()];
    if (kind.passed == 0) kind.began = now;
    return kind;
}

std::vector<Event> EventDigest::due(Time now) {
    std::vector<Event> told;
    if (now < next_look_) return told;
    next_look_ = now + look_period;
    for (auto next = kinds_.begin(); next != kinds_.end();) {
        Kind& kind = next->second;
        const bool over = now - kind.began >= period;
        const bool quiet = kind.held == 0;
        if (over && !quiet) {
            told.push_back(summary(kind.last, kind.held));
            kind = {now, 1, 0, {}};  // the summary is the first of the next minute
        }
        next = over && quiet ? kinds_.erase(next) : std::next(next);
    }
    return told;
}

std::vector<Event> EventDigest::flush() {
    std::vector<Event> told;
    for (const auto& [key, kind] : kinds_)
        if (kind.held > 0) told.push_back(summary(kind.last, kind.held));
    kinds_.clear();
    return told;
}

}  // namespace plendix
