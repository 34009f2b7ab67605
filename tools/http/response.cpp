#include "http/response.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace plendix {

Response& Response::with(const std::string& name, const std::string& value) {
    headers.emplace_back(name, value);
    return *this;
}

Response bytes_response(const std::string& type, SharedBytes body) {
    return {200, {{"Content-Type", type}}, std::move(body), nullptr, 0};
}

Response stream_response(const std::string& type, std::shared_ptr<Stream> stream) {
    return {200, {{"Content-Type", type}}, {}, std::move(stream), 0};
}

Response text_response(const std::string& text, const std::string& type) {
    return bytes_response(type, shared_bytes(text));
}

Response json_response(const nlohmann::ordered_json& value, int status) {
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;
    Response response = text_response(value.dump(-1, ' ', false, replace) + "\n", "application/json");
    response.status = status;
    return response;
}

Response error_response(int status, const std::string& line) {
    return json_response({{"error", line}}, status);
}

Response empty_response() {
    return {204, {}, {}, nullptr, 0};
}

Response tagged_response(const Request& request, const std::string& tag, const std::string& type,
                         SharedBytes body) {
    const std::string quoted = '"' + tag + '"';
    const std::string known = request.header("If-None-Match").value_or("");
    const bool same = known == "*" || known.find(quoted) != std::string::npos;
    Response response = same ? Response{304, {}, {}, nullptr, 0} : bytes_response(type, std::move(body));
    return response.with("ETag", quoted).with("Cache-Control", "no-cache");
}

}  // namespace plendix
