#include "http/engine.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "http/client_socket.h"

namespace plendix {
namespace {

using Clock = Connection::Clock;

constexpr unsigned most_accepted = 64;  // before those that are there get their turn
constexpr int look_ms = 1000;           // how often it is looked after clients
constexpr std::chrono::milliseconds look_interval{look_ms};
constexpr std::chrono::seconds trouble_interval{10};

Connection& connection_of(MHD_Connection* connection) {
    return *static_cast<Connection*>(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
}

}  // namespace

ServerEngine::ServerEngine(const ServerOptions& options, const Router& router, Guard& guard)
    : options_(options), parts_{options_, router, guard, workers_, counters_, bell_} {
    start(guard);
}

ServerEngine::~ServerEngine() {
    stop();
}

void ServerEngine::stop() {
    stopping_ = true;
    bell_.ring();
    if (thread_.joinable()) thread_.join();
}

ServerCounts ServerEngine::counts() const {
    ServerCounts counts;
    counts.requests = counters_.requests;
    counts.refused = counters_.refused;
    counts.bytes = counters_.bytes;
    counts.connections = counters_.connections;
    counts.open_connections = counters_.open_connections;
    counts.open_streams = counters_.open_streams;
    return counts;
}

/// Until the thread runs, what the library says is the reason why it does not start.
void ServerEngine::trouble(const std::string& line) {
    last_trouble_ = line;
    const auto now = Clock::now();
    if (!options_.log || daemon_ == nullptr || now - trouble_told_ < trouble_interval) return;
    trouble_told_ = now;
    options_.log(line);
}

bool ServerEngine::has_room(Clock::time_point now) const {
    return connections_.size() < most_connections_ && now >= accept_again_;
}

/// For the library, the bell, a new client, or the next look at the clients, where there are some.
void ServerEngine::wait() {
    const int listening = has_room(Clock::now()) ? listening_ : -1;  // poll looks past it
    std::array<pollfd, 3> events{
        {{library_events_, POLLIN, 0}, {bell_.descriptor(), POLLIN, 0}, {listening, POLLIN, 0}}};
    MHD_UNSIGNED_LONG_LONG library_ms = 0;
    const bool due = MHD_get_timeout(daemon_, &library_ms) == MHD_YES;
    const int longest = connections_.empty() && listening >= 0 ? -1 : look_ms;
    const int patience =
        due ? static_cast<int>(std::min<MHD_UNSIGNED_LONG_LONG>(library_ms, look_ms)) : longest;
    poll(events.data(), events.size(), patience);
    if (events[1].revents != 0) bell_.clear();
    if (events[2].revents != 0) accept_all();
}

/// The library would accept them, too, but at the lowest descriptors that are free.
void ServerEngine::accept_all() {
    for (unsigned count = 0; count < most_accepted && connections_.size() + count < most_connections_;
         ++count) {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        auto* const peer = reinterpret_cast<sockaddr*>(&address);
        const int client = accept4(listening_, peer, &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client < 0) {
            if (errno != EMFILE && errno != ENFILE) return;
            trouble("no descriptor is left for a client");
            accept_again_ = Clock::now() + look_interval;
            return;
        }
        MHD_add_connection(daemon_, out_of_the_way(client), peer, length);  // closes what it does not take
    }
}

void ServerEngine::run() {
    while (!stopping_) {
        wait();
        MHD_run(daemon_);
        const auto now = Clock::now();
        if (now - looked_ >= look_interval) look_after_all(now);
    }
    shut_down();
}

/// The library wants no connection asleep when it stops: each is woken, and cut at its turn.
void ServerEngine::shut_down() {
    for (Connection* connection : connections_)
        if (connection->exchange != nullptr) connection->exchange->cut();
    MHD_run(daemon_);
    MHD_stop_daemon(daemon_);
    daemon_ = nullptr;
    close(listening_);
}

void ServerEngine::look_after(Connection& connection, Clock::time_point now) {
    Exchange* const exchange = connection.exchange;
    if (exchange == nullptr || !exchange->answering()) {
        if (now > connection.deadline) shutdown(connection.descriptor, SHUT_RDWR);
        return;
    }
    const bool gone = exchange->asleep() && client_is_gone(connection.descriptor);
    if (gone || (exchange->streaming() && !exchange->still_welcome())) exchange->cut();
}

void ServerEngine::look_after_all(Clock::time_point now) {
    looked_ = now;
    for (Connection* connection : connections_)
        look_after(*connection, now);
}

Connection* ServerEngine::opened(MHD_Connection* library_connection) {
    const auto* info = MHD_get_connection_info(library_connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    auto connection = std::make_unique<Connection>();
    connection->descriptor = info->connect_fd;
    const auto* address = MHD_get_connection_info(library_connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    connection->peer = peer_text(address->client_addr);
    connection->deadline = Clock::now() + options_.request_time;
    set_up_client_socket(connection->descriptor);
    ++counters_.connections;
    ++counters_.open_connections;
    return *connections_.insert(connection.release()).first;
}

void ServerEngine::closed(Connection* connection) {
    --counters_.open_connections;
    connections_.erase(connection);
    delete connection;
}

Exchange* ServerEngine::asked(MHD_Connection* library_connection, const std::string& target) {
    Connection& connection = connection_of(library_connection);
    connection.deadline = Clock::now() + options_.request_time;
    connection.exchange = new Exchange(parts_, library_connection, connection.peer, target);
    return connection.exchange;
}

/// Once the server stops, nothing may fall asleep any more.
bool ServerEngine::handle(Exchange& exchange, const char* method, const char* body, std::size_t* size) {
    if (stopping_) return false;
    if (!exchange.judged()) return exchange.judge(method);
    if (*size == 0) return exchange.answer();
    const bool good = exchange.take_body(body, *size);
    *size = 0;
    return good;
}

void ServerEngine::answered(MHD_Connection* library_connection, Exchange* exchange) {
    Connection& connection = connection_of(library_connection);
    connection.exchange = nullptr;
    connection.deadline = Clock::now() + options_.idle_time;
    delete exchange;
}

}  // namespace plendix
