// What other programs ask: whether all is well, and in numbers.
#include <nlohmann/json.hpp>

#include "http/server.h"
#include "serve/house.h"
#include "serve/openapi.h"
#include "serve/routes.h"

namespace plendix {
namespace {

// The driver's worker calls at each event, and when it is asked for a sign of life every two seconds.
constexpr double longest_silence_s = 15;

Response health(House& house) {
    const double age_s = house.numbers().seconds_since_call;
    const bool idle = house.board().states().empty();  // the driver has nothing to say of no camera
    if (idle || age_s <= longest_silence_s) return text_response("ok\n");
    Response response =
        text_response("the driver has not called for " + std::to_string(static_cast<long>(age_s)) + " s\n");
    response.status = 503;
    return response;
}

/// Strangers learn whether it is so, and nothing of the cameras.
Response readiness(House& house, bool stranger) {
    std::string text;
    for (const CameraState& state : house.board().states()) {
        const bool fine = state.condition == CameraCondition::live || state.condition == CameraCondition::off;
        if (!fine)
            text += "camera " + std::to_string(state.number) + ' ' + condition_name(state.condition) + '\n';
    }
    Response response = text_response(text.empty() ? "ok\n" : stranger ? "not ready\n" : text);
    if (!text.empty()) response.status = 503;
    return response;
}

Response metrics(House& house, const Server* server, const std::string& version) {
    ProcessNumbers numbers = house.numbers();
    numbers.version = version;
    if (server != nullptr) {
        const ServerCounts counts = server->counts();
        numbers.requests = counts.requests;
        numbers.refused = counts.refused;
        numbers.bytes = counts.bytes;
        numbers.connections = counts.open_connections;
        numbers.streams = counts.open_streams;
    }
    return text_response(metrics_text(house.board(), house.hub(), numbers),
                         "text/plain; version=0.0.4; charset=utf-8");
}

}  // namespace

void add_program_routes(Router& router, House& house, const Guard& guard, const Server*& server,
                        const std::string& version) {
    router.add("GET", "/healthz", [&house](const Request&) { return health(house); }, {true, Lane::server});
    router.add("GET", "/readyz",
               [&house, &guard](const Request& request) {
                   return readiness(house, guard.login_needed() && request.user.empty());
               },
               {true, Lane::server});
    router.add("GET", "/metrics",
               [&house, &server, version](const Request&) { return metrics(house, server, version); });
    router.add("GET", "/api/openapi.json",
               [](const Request&) { return text_response(openapi_text(), "application/json"); });
}

}  // namespace plendix
