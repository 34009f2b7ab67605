#include "http/guard.h"

#include "http/uri.h"
#include "usage.h"

namespace plendix {
namespace {

/// What would let somebody in whom nobody wants.
void require_safe(const GuardOptions& options) {
    if (is_loopback(options.listen)) return;
    const std::string where = "--listen " + host_text(options.listen.host) + " is open to other machines: ";
    if (options.password_file.empty() && options.token_file.empty())
        throw UsageError(where + "it needs --password-file or --token-file");
    if (!options.tls && !options.insecure)
        throw UsageError(where + "it needs --tls-cert and --tls-key, or --insecure where passwords may " +
                         "cross the network for all to read");
}

OwnNames own_names(const GuardOptions& options) {
    OwnNames own;
    own.names = {"127.0.0.1", "localhost", "::1"};
    own.any_address = is_any(options.listen);
    if (!own.any_address) own.names.push_back(name_of_host(host_text(options.listen.host)));
    for (const std::string& name : options.host_names) {
        own.names.push_back(name_of_host(host_text(name)));
        if (own.names.back().empty())
            throw UsageError("--host-name '" + name + "' is no name of a machine, as cameras.example.org");
    }
    own.tls = options.tls;
    return own;
}

bool changes_something(const std::string& method) {
    return method != "GET" && method != "HEAD";
}

}  // namespace

Guard::Guard(const GuardOptions& options) : options_(options), names_(own_names(options)) {
    require_safe(options);
    if (!options.password_file.empty()) passwords_.emplace(options.password_file);
    if (!options.token_file.empty()) tokens_.emplace(options.token_file);
    set_port(options.listen.port);
}

void Guard::set_port(int port) {
    cookie_name_ = "plendix_" + std::to_string(port);
}

/// The user of the request's token or session; empty: none.
std::string Guard::user_of(const Request& request) const {
    const auto authorization = request.header("Authorization");
    if (tokens_ && authorization && tokens_->has(bearer_token(*authorization))) return token_user;
    const auto secret = request.cookie(cookie_name_);
    return secret ? sessions_.user(*secret) : std::string();
}

std::optional<Response> Guard::refuse(Request& request, const std::string& method, const Route* route) const {
    const Denial refusal = check_visitor(request, changes_something(method), names_);
    if (refusal.status != 0) return error_response(refusal.status, refusal.line);
    if (!login_needed()) return std::nullopt;
    request.user = user_of(request);
    const bool open = route != nullptr && route->options.open;
    if (open || !request.user.empty()) return std::nullopt;
    return error_response(401, "log in first: POST /api/login, or a header 'Authorization: Bearer TOKEN'")
        .with("WWW-Authenticate", "Bearer");
}

bool Guard::still_welcome(const Request& request) const {
    return request.user.empty() || user_of(request) == request.user;
}

}  // namespace plendix
