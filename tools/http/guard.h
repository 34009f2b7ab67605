// Who may ask the HTTP server, and what for.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "http/listen_address.h"
#include "http/login_tries.h"
#include "http/password_file.h"
#include "http/request.h"
#include "http/response.h"
#include "http/router.h"
#include "http/sessions.h"
#include "http/visitor_check.h"

namespace plendix {

/// The user of a request with a token.
constexpr const char* token_user = "token";

struct GuardOptions {
    ListenAddress listen;
    std::vector<std::string> host_names;  // further names of this server
    std::string password_file;            // lines name:hash; empty: none
    std::string token_file;               // a token a line; empty: none
    bool tls = false;
    bool insecure = false;  // passwords and pictures may cross a network in the clear
};

/// Throws UsageError at options that would let somebody in, and at files that cannot be read or that
/// others can. Any thread may ask.
class Guard {
public:
    explicit Guard(const GuardOptions& options);

    /// Whether anybody needs to log in at all.
    bool login_needed() const { return passwords_.has_value() || tokens_.has_value(); }

    /// Nothing: go on, with request.user filled in. Else what to answer. `method` is the client's own.
    std::optional<Response> refuse(Request& request, const std::string& method, const Route* route) const;

    /// Whether who asked then could ask now: a stream goes on for days. Counts as a use of the session.
    bool still_welcome(const Request& request) const;

    /// The routes POST /api/login, POST /api/logout and GET /api/session. They use the guard.
    void add_routes(Router& router, const std::string& version);

    /// The port that is in the cookie's name: browsers give a cookie to every port of a host.
    void set_port(int port);

private:
    Response log_in(const Request& request);
    Response log_out(const Request& request);
    Response session(const Request& request, const std::string& version) const;
    std::string user_of(const Request& request) const;
    std::string cookie(const std::string& value, std::chrono::seconds age) const;
    std::string admitted(const std::string& name, const std::string& password) const;

    GuardOptions options_;
    OwnNames names_;
    std::optional<PasswordFile> passwords_;
    std::optional<TokenFile> tokens_;
    std::string cookie_name_;
    mutable Sessions sessions_;
    LoginTries tries_;
};

}  // namespace plendix
