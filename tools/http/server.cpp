#include "http/server.h"

#include "http/engine.h"

namespace plendix {

Server::Server(const ServerOptions& options, const Router& router, Guard& guard)
    : engine_(std::make_unique<ServerEngine>(options, router, guard)) {}

Server::~Server() = default;

int Server::port() const {
    return engine_->port();
}

std::string Server::url() const {
    const ServerOptions& options = engine_->options();
    const std::string host = is_any(options.listen) ? "127.0.0.1" : host_text(options.listen.host);
    return (options.tls_certificate.empty() ? "http://" : "https://") + host + ":" + std::to_string(port()) +
           "/";
}

ServerCounts Server::counts() const {
    return engine_->counts();
}

void Server::stop() {
    engine_->stop();
}

}  // namespace plendix
