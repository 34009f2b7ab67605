#include "serve/event_response.h"

#include "host/clocks.h"

namespace plendix {
namespace {

constexpr std::size_t most_at_once = 200;
constexpr std::int64_t cameras_period_ms = 1000;
constexpr std::int64_t comment_period_ms = 10000;

}  // namespace

std::string EventResponse::events() {
    const EventFeed::Page page = feed_.after(last_id_, most_at_once);
    std::string text;
    if (page.gap) text += "event: gap\ndata: {}\n\n";
    if (page.gap && page.items.empty()) last_id_ = feed_.last_id();
    for (const EventFeed::Item& item : page.items) {
        text += "id: " + std::to_string(item.id) + "\nevent: " + item.kind + "\ndata: " + item.json + "\n\n";
        last_id_ = item.id;
    }
    return text;
}

/// A number to come back with, for one who loses the connection before the first event.
std::string EventResponse::beginning() {
    begun_ = true;
    const std::string text = "retry: 2000\nid: " + std::to_string(last_id_) + "\n\n";
    return text + events();
}

std::string EventResponse::cameras() {
    std::string list;
    const auto texts = board_.summary_texts();
    for (const auto& [camera, text] : *texts) {
        std::string& told = told_[camera];
        if (text == told) continue;
        list += (list.empty() ? "" : ",") + text;
        told = text;
    }
    return list.empty() ? "" : "event: cameras\ndata: {\"cameras\":[" + list + "]}\n\n";
}

PieceStream::Pieces EventResponse::next() {
    const std::int64_t now = milliseconds_of(std::chrono::steady_clock::now());
    std::string text = begun_ ? events() : beginning();
    if (now >= next_cameras_ms_) {
        next_cameras_ms_ = now + cameras_period_ms;
        text += cameras();
    }
    if (text.empty() && now >= next_comment_ms_) text = ":\n\n";
    if (text.empty()) return {};
    next_comment_ms_ = now + comment_period_ms;
    return {{shared_bytes(std::move(text))}, false};
}

}  // namespace plendix
