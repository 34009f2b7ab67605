// Cameras as they are and as they are wanted.
#include <nlohmann/json.hpp>

#include "host/clocks.h"
#include "host/event_json.h"
#include "http/http_error.h"
#include "http/json_body.h"
#include "serve/house.h"
#include "serve/routes.h"
#include "usage.h"

namespace plendix {
namespace {

using nlohmann::json;
using nlohmann::ordered_json;

std::int64_t now_ms() {
    return milliseconds_of(std::chrono::steady_clock::now());
}

bool flag(const json& body, const char* name) {
    const auto found = body.is_object() ? body.find(name) : body.end();
    if (found == body.end() || !found->is_boolean())
        throw UsageError(std::string("the body needs \"") + name + "\": true or false");
    return found->get<bool>();
}

double seconds_of(const json& body) {
    const auto found = body.find("seconds");
    if (found == body.end()) return 0;
    if (!found->is_number()) throw UsageError("seconds: give a number from 0 to 86400");
    return found->get<double>();
}

Response all(House& house, const std::string& version) {
    return json_response(
        {{"time", utc_text(utc_ms())}, {"version", version}, {"cameras", house.board().summaries()}});
}

Response one(House& house, int camera) {
    const ordered_json detail = house.board().detail(camera);
    if (detail.is_null()) throw HttpError(404, "camera " + std::to_string(camera) + " is not there");
    return json_response(detail);
}

}  // namespace

int camera_of(const Request& request, House& house) {
    const int camera = request.number("camera");
    if (!house.desk().knows(camera))
        throw HttpError(404, "camera " + std::to_string(camera) + " is not there");
    return camera;
}

void add_camera_routes(Router& router, House& house, const std::string& version) {
    router.add("GET", "/api/cameras", [&house, version](const Request&) { return all(house, version); });
    router.add("GET", "/api/cameras/{camera}",
               [&house](const Request& request) { return one(house, camera_of(request, house)); });
    router.add("PATCH", "/api/cameras/{camera}", [&house](const Request& request) {
        const int camera = camera_of(request, house);
        house.desk().patch(camera, json_body(request), now_ms());
        return one(house, camera);
    });
    router.add("POST", "/api/cameras/{camera}/undo", [&house](const Request& request) {
        const int camera = camera_of(request, house);
        if (!house.desk().undo(camera, now_ms())) throw HttpError(409, "there is nothing to take back");
        return one(house, camera);
    });
    router.add("POST", "/api/cameras/{camera}/relay", [&house](const Request& request) {
        const json body = json_body(request);
        house.desk().set_relay(camera_of(request, house), flag(body, "on"), seconds_of(body), now_ms());
        return empty_response();
    });
    router.add("POST", "/api/cameras/{camera}/recording", [&house](const Request& request) {
        house.desk().set_recording(camera_of(request, house), flag(json_body(request), "on"));
        return empty_response();
    });
    router.add("GET", "/api/history/{camera}", [&house](const Request& request) {
        const ordered_json history = house.board().history(camera_of(request, house));
        if (history.is_null()) throw HttpError(404, "nothing is known of this camera yet");
        return json_response(history);
    });
}

}  // namespace plendix
