// What happened: events as they come, the driver's log.
#include "serve/event_response.h"
#include "serve/house.h"
#include "serve/routes.h"

namespace plendix {
namespace {

/// Of a client that comes back; one that is new begins with what comes.
std::uint64_t known_event(const Request& request, const EventFeed& feed) {
    const auto given = request.header("last-event-id");
    if (!given || given->empty() || given->size() > 19 ||
        given->find_first_not_of("0123456789") != std::string::npos)
        return feed.last_id();
    return std::stoull(*given);
}

}  // namespace

void add_event_routes(Router& router, House& house) {
    router.add("GET", "/api/events", [&house](const Request& request) {
        EventFeed& feed = house.feed();
        const auto stream = std::make_shared<EventResponse>(feed, house.board(), known_event(request, feed));
        feed.follow(stream, [waker = std::weak_ptr<Stream>(stream)] {
            if (const auto here = waker.lock()) here->wake();
        });
        return stream_response("text/event-stream", stream).with("Cache-Control", "no-store");
    });
    router.add("GET", "/api/log", [&house](const Request& request) {
        return json_response(
            house.log().after(static_cast<std::uint64_t>(request.asked_number("after", 0, INT64_MAX, 0))));
    });
}

}  // namespace plendix
