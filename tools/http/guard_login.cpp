#include <nlohmann/json.hpp>

#include "http/guard.h"
#include "http/http_error.h"
#include "http/login_body.h"

namespace plendix {

/// Who that is; empty: neither name and password nor a token, which does for a page, too.
std::string Guard::admitted(const std::string& name, const std::string& password) const {
    if (tokens_ && tokens_->has(password)) return token_user;
    return passwords_ && passwords_->right(name, password) ? name : std::string();
}

/// Without Secure over plain HTTP, or no browser would give it back.
std::string Guard::cookie(const std::string& value, std::chrono::seconds age) const {
    return cookie_name_ + "=" + value + "; Path=/; Max-Age=" + std::to_string(age.count()) +
           "; HttpOnly; SameSite=Strict" + (options_.tls ? "; Secure" : "");
}

Response Guard::log_in(const Request& request) {
    if (!login_needed()) throw HttpError(400, "nobody needs to log in here");
    const Credentials given = parse_login(request.body);
    const auto pause = tries_.begin(request.peer);
    if (pause.count() > 0)
        return error_response(429, "too many tries: the next one in " + std::to_string(pause.count()) + " s")
            .with("Retry-After", std::to_string(pause.count()));
    const std::string user = admitted(given.name, given.password);
    if (user.empty()) throw HttpError(403, "wrong name or password");
    tries_.succeeded(request.peer);
    return json_response({{"name", user}})
        .with("Set-Cookie", cookie(sessions_.begin(user), Sessions::whole_life));
}

Response Guard::log_out(const Request& request) {
    const auto secret = request.cookie(cookie_name_);
    if (secret) sessions_.end(*secret);
    return empty_response().with("Set-Cookie", cookie("", std::chrono::seconds(0)));
}

/// The version only to those who may ask for more.
Response Guard::session(const Request& request, const std::string& version) const {
    const bool known = !login_needed() || !request.user.empty();
    nlohmann::ordered_json value{{"login", login_needed()}, {"name", nullptr}, {"version", nullptr}};
    if (!request.user.empty()) value["name"] = request.user;
    if (known) value["version"] = version;
    return json_response(value);
}

void Guard::add_routes(Router& router, const std::string& version) {
    router.add("POST", "/api/login", [this](const Request& request) { return log_in(request); },
               {true, Lane::login});
    router.add("POST", "/api/logout", [this](const Request& request) { return log_out(request); },
               {true, Lane::server});
    router.add("GET", "/api/session",
               [this, version](const Request& request) { return session(request, version); },
               {true, Lane::server});
}

}  // namespace plendix
