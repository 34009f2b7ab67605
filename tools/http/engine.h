// Behind the server: its thread, the library that speaks HTTP, and the time that clients are given.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <unordered_set>

#include "http/bell.h"
#include "http/exchange.h"
#include "http/guard.h"
#include "http/server.h"
#include "http/worker.h"

struct MHD_Daemon;

namespace plendix {

/// A client's TCP connection. The server's thread alone.
struct Connection {
    using Clock = std::chrono::steady_clock;

    int descriptor = -1;
    std::string peer;
    Clock::time_point deadline;    // for a request to be there; the farthest: there is one
    Exchange* exchange = nullptr;  // the request at hand
};

/// Any thread may call stop() and what only tells; one of them at a time.
class ServerEngine {
public:
    ServerEngine(const ServerOptions& options, const Router& router, Guard& guard);
    ~ServerEngine();
    ServerEngine(const ServerEngine&) = delete;
    ServerEngine& operator=(const ServerEngine&) = delete;

    const ServerOptions& options() const { return options_; }
    int port() const { return port_; }
    ServerCounts counts() const;
    void stop();

    // What the library calls, in the server's thread; false: the connection is to be closed.
    Connection* opened(MHD_Connection* connection);
    void closed(Connection* connection);
    Exchange* asked(MHD_Connection* connection, const std::string& target);
    bool handle(Exchange& exchange, const char* method, const char* body, std::size_t* size);
    void answered(MHD_Connection* connection, Exchange* exchange);
    void trouble(const std::string& line);

private:
    void start(Guard& guard);
    void run();
    void wait();
    void accept_all();
    bool has_room(Connection::Clock::time_point now) const;
    void look_after(Connection& connection, Connection::Clock::time_point now);
    void look_after_all(Connection::Clock::time_point now);
    void shut_down();

    const ServerOptions options_;
    ServerCounters counters_;
    Bell bell_;
    Workers workers_;
    ServerParts parts_;
    MHD_Daemon* daemon_ = nullptr;
    int listening_ = -1;
    unsigned most_connections_ = 0;
    int library_events_ = -1;  // a descriptor that is readable when the library has something to do
    int port_ = 0;
    std::string last_trouble_;
    Connection::Clock::time_point trouble_told_{};
    Connection::Clock::time_point looked_{};
    Connection::Clock::time_point accept_again_{};  // after the system had no descriptor
    std::unordered_set<Connection*> connections_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace plendix
