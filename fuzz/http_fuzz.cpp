// What an HTTP request is judged by: its target, its headers, the body of a login or of new settings. What
// passes must be what the rest of the server relies on.
#include <algorithm>
#include <cctype>
#include <sstream>

#include "fuzz.h"
#include "host/plain_text.h"
#include "http/http_error.h"
#include "http/json_body.h"
#include "http/listen_address.h"
#include "http/login_body.h"
#include "http/router.h"
#include "http/uri.h"
#include "http/visitor_check.h"
#include "serve/settings_json.h"
#include "usage.h"

namespace {

using namespace plendix;

bool safe(const std::string& text) {
    return printable(text) == text && text.find('\0') == std::string::npos;
}

Router routes() {
    Router router;
    for (const char* pattern : {"/", "/api/cameras/{number}", "/camera/{number}.jpg", "/api/wall/{id:text}"})
        router.add("GET", pattern, nullptr);
    router.add("PATCH", "/api/cameras/{number}", nullptr);
    return router;
}

void target(const std::string& text) {
    static const Router router = routes();
    const auto parsed = parse_target(text);
    if (!parsed) return;
    require(parsed->path[0] == '/' && safe(parsed->path));
    require(("/" + parsed->path + "/").find("/../") == std::string::npos);
    Request request;
    for (const auto& [name, value] : parsed->query)
        require(safe(name) && safe(value));
    request.query = parsed->query;
    const RouteMatch match = router.find("GET", parsed->path);
    require((match.route != nullptr) == (match.status == 200));
    request.parameters = match.parameters;
    if (match.parameters.count("number") != 0) require(request.number("number") >= 0);
    if (match.parameters.count("id") != 0) require(request.text("id").find('/') == std::string::npos);
    try {
        const auto width = request.asked_number("w", -5, 100, 7);
        require(width >= -5 && width <= 100);
    } catch (const HttpError& error) {
        require(error.status() == 400);
    }
}

Fields headers_of(const std::string& text) {
    Fields headers;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        const std::size_t value = line.find_first_not_of(' ', std::min(colon, line.size() - 1) + 1);
        if (colon == std::string::npos) continue;
        headers.emplace_back(line.substr(0, colon), value == std::string::npos ? "" : line.substr(value));
    }
    return headers;
}

void visitor(const std::string& text, bool changes, bool tls) {
    Request request;
    request.headers = headers_of(text);
    const OwnNames own{{"localhost", "::1", "cameras.example"}, false, tls};
    const Denial refusal = check_visitor(request, changes, own);
    require(safe(refusal.line) && (refusal.status == 0) == refusal.line.empty());
    if (refusal.status != 0) return;
    const std::string name = name_of_host(request.header("Host").value_or(""));
    require(std::find(own.names.begin(), own.names.end(), name) != own.names.end());
    require(!changes || request.header("X-Plendix") == "1");
    const auto origin = request.header("Origin");
    if (!origin) return;
    const std::size_t host = origin->find("//");
    require(host != std::string::npos && name_of_host(origin->substr(host + 2)) == name);
    require(!tls || std::tolower(static_cast<unsigned char>(origin->at(4))) == 's');
}

void texts(const std::string& text) {
    for (const auto& [name, value] : parse_cookies(text))
        require(!name.empty() && name.find_first_of("=;") == std::string::npos &&
                value.find(';') == std::string::npos);
    require(bearer_token(text).size() <= text.size());
    try {
        const ListenAddress address = parse_listen_address(text);
        require(address.port >= 0 && address.port <= 65535 && !name_of_host(host_text(address.host)).empty());
        require(!(is_any(address) && is_loopback(address)));
    } catch (const UsageError&) {
    }
}

void log_in(const std::string& body) try {
    require(!parse_login(body).password.empty());
} catch (const HttpError& error) {
    require(error.status() == 400);
}

/// What is taken is written such that it is taken again, and means the same.
void change(const std::string& body) try {
    Request request;
    request.body = body;
    CameraSettings camera;
    camera.name = "Gate";
    camera.address = "10.0.0.7";
    const CameraSettings changed = patched(camera, json_body(request));
    require(safe(changed.name) && safe(changed.address) && safe(changed.trigger_name));
    require(patched(camera, nlohmann::json(settings_json(changed))) == changed);
} catch (const UsageError&) {
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t kind = input.byte();
    const std::string text = input.bytes(size);
    if (kind % 4 == 0) target(text);
    if (kind % 4 == 1) visitor(text, (kind & 4U) != 0, (kind & 8U) != 0);
    if (kind % 4 == 2) texts(text);
    if (kind % 8 == 3) log_in(text);
    if (kind % 8 == 7) change(text);
    return 0;
}
