#include "http/engine.h"

#include <microhttpd.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "host/plain_text.h"
#include "http/listening_socket.h"
#include "http/tls_files.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = Connection::Clock;

constexpr std::size_t most_errands = 64;
constexpr std::size_t most_logins = 16;
constexpr std::size_t connection_memory = 128U << 10U;  // bytes; at most half of it is a stream's buffer
constexpr int unsent_bytes = 256 << 10;  // of a connection, in the kernel: more would only grow old there
constexpr int look_ms = 1000;            // how often it is looked after clients
constexpr std::chrono::milliseconds look_interval{look_ms};
constexpr std::chrono::seconds trouble_interval{10};
const char* const tls_versions = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

ServerEngine& engine_at(void* engine) {
    return *static_cast<ServerEngine*>(engine);
}

MHD_Result result_of(bool good) {
    return good ? MHD_YES : MHD_NO;
}

// The library's callbacks. `engine` is what was given with them.

void* on_request_line(void* engine, const char* target, MHD_Connection* connection) {
    return engine_at(engine).asked(connection, target);
}

MHD_Result on_request(void* engine, MHD_Connection*, const char*, const char* method, const char*,
                      const char* body, std::size_t* size, void** exchange) {
    return result_of(engine_at(engine).handle(*static_cast<Exchange*>(*exchange), method, body, size));
}

void on_answered(void* engine, MHD_Connection* connection, void** exchange, MHD_RequestTerminationCode) {
    engine_at(engine).answered(connection, static_cast<Exchange*>(std::exchange(*exchange, nullptr)));
}

void on_connection(void* engine, MHD_Connection* connection, void** context,
                   MHD_ConnectionNotificationCode code) {
    if (code == MHD_CONNECTION_NOTIFY_STARTED)
        *context = engine_at(engine).opened(connection);
    else
        engine_at(engine).closed(static_cast<Connection*>(std::exchange(*context, nullptr)));
}

void on_trouble(void* engine, const char* format, va_list values) {
    std::array<char, 400> line{};
    std::vsnprintf(line.data(), line.size(), format, values);
    std::string text = printable(line.data());
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    engine_at(engine).trouble(text);
}

Connection& connection_of(MHD_Connection* connection) {
    return *static_cast<Connection*>(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
}

void set(int descriptor, int level, int option, int value) {
    setsockopt(descriptor, level, option, &value, sizeof value);
}

/// A client that is no more is noticed, and pictures wait with us, where newer ones take their place.
void set_up_socket(int descriptor) {
    set(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    set(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(descriptor, IPPROTO_TCP, TCP_KEEPCNT, 4);
    set(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, unsent_bytes);
}

/// Half of the descriptors that the process may have are for others.
unsigned connection_limit(unsigned wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur / 2 > wanted) return wanted;
    return static_cast<unsigned>(limit.rlim_cur / 2);
}

bool client_is_gone(int descriptor) {
    pollfd socket{descriptor, POLLRDHUP, 0};
    return poll(&socket, 1, 0) > 0 && (socket.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

/// For a thread that is made meanwhile: what main waits for is not for it.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

using LibraryOptions = std::vector<MHD_OptionItem>;

void add_number(LibraryOptions& list, MHD_OPTION option, std::size_t value) {
    list.push_back({option, static_cast<intptr_t>(value), nullptr});
}

/// The text is there until the library has started.
void add_text(LibraryOptions& list, MHD_OPTION option, const char* text) {
    list.push_back({option, 0, const_cast<char*>(text)});  // NOLINT: the library only reads it
}

}  // namespace

ServerEngine::ServerEngine(const ServerOptions& options, const Router& router, Guard& guard)
    : options_(options), worker_(most_errands), login_worker_(most_logins), parts_{options_,      router,
                                                                                   guard,         worker_,
                                                                                   login_worker_, counters_,
                                                                                   bell_} {
    start(guard);
}

ServerEngine::~ServerEngine() {
    stop();
}

void ServerEngine::start(Guard& guard) {
    const bool tls = !options_.tls_certificate.empty();
    const TlsFiles files = tls ? read_tls_files(options_.tls_certificate, options_.tls_key) : TlsFiles{};
    const int listening = options_.socket >= 0 ? options_.socket : open_listening_socket(options_.listen);
    port_ = port_of_socket(listening);
    guard.set_port(port_);
    LibraryOptions list;
    add_number(list, MHD_OPTION_LISTEN_SOCKET, static_cast<std::size_t>(listening));
    add_number(list, MHD_OPTION_CONNECTION_LIMIT, connection_limit(options_.connections));
    add_number(list, MHD_OPTION_PER_IP_CONNECTION_LIMIT, options_.connections_per_address);
    add_number(list, MHD_OPTION_CONNECTION_TIMEOUT, static_cast<std::size_t>(options_.idle_time.count()));
    add_number(list, MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_memory);
    add_number(list, MHD_OPTION_STRICT_FOR_CLIENT, 1);
    if (tls) {
        add_text(list, MHD_OPTION_HTTPS_MEM_CERT, files.certificate.c_str());
        add_text(list, MHD_OPTION_HTTPS_MEM_KEY, files.key.c_str());
        add_text(list, MHD_OPTION_HTTPS_PRIORITIES, tls_versions);
    }
    list.push_back({MHD_OPTION_END, 0, nullptr});
    const unsigned mode =
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG | (tls ? MHD_USE_TLS : MHD_NO_FLAG);
    daemon_ = MHD_start_daemon(mode, 0, nullptr, nullptr, on_request, this,   //
                               MHD_OPTION_EXTERNAL_LOGGER, on_trouble, this,  //
                               MHD_OPTION_URI_LOG_CALLBACK, on_request_line, this,
                               MHD_OPTION_NOTIFY_COMPLETED, on_answered, this,     //
                               MHD_OPTION_NOTIFY_CONNECTION, on_connection, this,  //
                               MHD_OPTION_ARRAY, list.data(), MHD_OPTION_END);
    if (daemon_ == nullptr) throw Failure("cannot start the HTTP server: " + last_trouble_);
    library_events_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    const SignalsBlocked inherited;
    thread_ = std::thread([this] { run(); });
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

/// For the library, the bell, or the next look at the clients, where there are some.
void ServerEngine::wait() {
    std::array<pollfd, 2> events{{{library_events_, POLLIN, 0}, {bell_.descriptor(), POLLIN, 0}}};
    MHD_UNSIGNED_LONG_LONG library_ms = 0;
    const bool due = MHD_get_timeout(daemon_, &library_ms) == MHD_YES;
    const int longest = connections_.empty() ? -1 : look_ms;
    const int patience =
        due ? static_cast<int>(std::min<MHD_UNSIGNED_LONG_LONG>(library_ms, look_ms)) : longest;
    poll(events.data(), events.size(), patience);
    if (events[1].revents != 0) bell_.clear();
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
}

void ServerEngine::look_after(Connection& connection, Clock::time_point now) {
    Exchange* const exchange = connection.exchange;
    if (exchange == nullptr || !exchange->answering()) {
        if (now > connection.deadline) shutdown(connection.descriptor, SHUT_RDWR);
        return;
    }
    if (!exchange->streaming()) return;
    const bool gone = exchange->asleep() && client_is_gone(connection.descriptor);
    if (gone || !exchange->still_welcome()) exchange->cut();
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
    set_up_socket(connection->descriptor);
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
