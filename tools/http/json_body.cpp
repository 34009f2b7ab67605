#include "http/json_body.h"

#include "usage.h"

namespace plendix {

using nlohmann::json;

namespace {

constexpr int deepest = 4;

}  // namespace

json json_body(const Request& request) {
    const auto shallow = [](int depth, json::parse_event_t /*event*/, json& /*parsed*/) {
        if (depth > deepest) throw UsageError("the body is nested too deep");
        return true;
    };
    json body = json::parse(request.body, shallow, false);
    if (body.is_discarded()) throw UsageError("the body is no JSON");
    return body;
}

}  // namespace plendix
