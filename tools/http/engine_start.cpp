#include <microhttpd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "host/plain_text.h"
#include "http/client_socket.h"
#include "http/engine.h"
#include "http/listening_socket.h"
#include "http/tls_files.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t connection_memory = 128U << 10U;  // bytes; at most half of it is a stream's buffer
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

/// Clients leave as they like, and a stream that ends early is cut by us or has said why.
bool is_daily_life(const std::string& line) {
    for (const char* known :
         {"application error generating response", "application reported error generating data",
          "Failed to send", "closed by remote side", "disconnected when reading"})
        if (line.find(known) != std::string::npos) return true;
    return false;
}

void on_trouble(void* engine, const char* format, va_list values) {
    std::array<char, 400> line{};
    std::vsnprintf(line.data(), line.size(), format, values);
    std::string text = printable(line.data());
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    if (!is_daily_life(text)) engine_at(engine).trouble(text);
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

void ServerEngine::start(Guard& guard) {
    const bool tls = !options_.tls_certificate.empty();
    const TlsFiles files = tls ? read_tls_files(options_.tls_certificate, options_.tls_key) : TlsFiles{};
    listening_ = options_.socket >= 0 ? options_.socket : open_listening_socket(options_.listen);
    port_ = port_of_socket(listening_);
    most_connections_ = connection_limit(options_.connections);
    guard.set_port(port_);
    LibraryOptions list;
    add_number(list, MHD_OPTION_CONNECTION_LIMIT, most_connections_);
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
    const unsigned mode = MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME |
                          MHD_USE_ERROR_LOG | (tls ? MHD_USE_TLS : MHD_NO_FLAG);
    daemon_ = MHD_start_daemon(mode, 0, nullptr, nullptr, on_request, this,   //
                               MHD_OPTION_EXTERNAL_LOGGER, on_trouble, this,  //
                               MHD_OPTION_URI_LOG_CALLBACK, on_request_line, this,
                               MHD_OPTION_NOTIFY_COMPLETED, on_answered, this,     //
                               MHD_OPTION_NOTIFY_CONNECTION, on_connection, this,  //
                               MHD_OPTION_ARRAY, list.data(), MHD_OPTION_END);
    if (daemon_ == nullptr) {
        close(listening_);
        throw Failure("cannot start the HTTP server: " + last_trouble_);
    }
    library_events_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    const SignalsBlocked inherited;
    thread_ = std::thread([this] { run(); });
}

}  // namespace plendix
