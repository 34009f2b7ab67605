// The HTTP server: one thread that reads requests, asks the router and sends what it answers.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "http/guard.h"
#include "http/listen_address.h"
#include "http/router.h"

namespace plendix {

struct ServerOptions {
    ListenAddress listen;
    int socket = -1;  // that listens there already, and is the server's from now on; else it opens one
    std::string tls_certificate;  // PEM files; empty: no TLS
    std::string tls_key;
    unsigned connections = 600;              // at a time
    unsigned connections_per_address = 250;  // a proxy in front has one address for all
    std::size_t body_bytes = 64U << 10U;
    std::chrono::seconds request_time{10};  // for a whole request, from its first byte
    std::chrono::seconds idle_time{60};     // between requests, and for a client to take a plain response
    std::function<void(const std::string&)> log;  // one line of trouble; server's thread
};

/// For /metrics: totals since the start, but what is so now.
struct ServerCounts {
    std::uint64_t requests = 0;
    std::uint64_t refused = 0;  // answered 401, 403, 421 or 429
    std::uint64_t bytes = 0;    // of bodies and streams
    std::uint64_t connections = 0;
    std::uint64_t open_connections = 0;
    std::uint64_t open_streams = 0;
};

class ServerEngine;

class Server {
public:
    /// Listens when it returns. Router and guard outlive it, and do not change. Throws UsageError
    /// (certificate) or Failure (address in use).
    Server(const ServerOptions& options, const Router& router, Guard& guard);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const;
    std::string url() const;  // http://127.0.0.1:8069/
    ServerCounts counts() const;

    /// Ends all streams and connections, within a second; a handler of a worker is waited for.
    void stop();

private:
    std::unique_ptr<ServerEngine> engine_;
};

}  // namespace plendix
