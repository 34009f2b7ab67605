// A client that says to a server exactly what a test wants said.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

namespace plendix {

struct Reply {
    int status = 0;    // 0: the connection ended, or nothing came in time
    std::string head;  // status line and headers
    std::string body;
};

/// One connection; what does not come within ten seconds does not come at all.
class HttpClient {
public:
    HttpClient(const std::string& host, int port, const std::string& own = "127.0.0.1",
               int receive_buffer = 0)
        : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval patience{10, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (receive_buffer > 0)
            setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        const sockaddr_in from = address(own, 0);
        const sockaddr_in to = address(host, port);
        bind(socket_, reinterpret_cast<const sockaddr*>(&from), sizeof from);
        connect(socket_, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    ~HttpClient() { close(socket_); }
    HttpClient(HttpClient&& other) noexcept
        : socket_(std::exchange(other.socket_, -1)), waiting_(std::move(other.waiting_)) {}

    int descriptor() const { return socket_; }
    bool say(const std::string& text) {
        return send(socket_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }

    /// The next bytes, chunk marks included; empty: the end.
    std::string some() {
        if (!waiting_.empty()) return std::exchange(waiting_, {});
        std::string bytes(64U << 10U, '\0');
        const ssize_t count = recv(socket_, bytes.data(), bytes.size(), 0);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    /// Status line and headers of the next reply.
    Reply head() {
        Reply reply;
        reply.head = up_to("\r\n\r\n");
        if (reply.head.size() > 12) reply.status = std::atoi(reply.head.c_str() + 9);
        return reply;
    }

    /// The next reply, whose length its headers tell.
    Reply reply(bool without_body = false) {
        Reply reply = head();
        const std::size_t length = reply.head.find("Content-Length: ");
        if (without_body || length == std::string::npos) return reply;
        const auto size = std::strtoul(reply.head.c_str() + length + 16, nullptr, 10);
        while (waiting_.size() < size && more()) {
        }
        reply.body = waiting_.substr(0, size);
        waiting_.erase(0, size);
        return reply;
    }

private:
    static sockaddr_in address(const std::string& host, int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        inet_pton(AF_INET, host.c_str(), &address.sin_addr);
        return address;
    }
    bool more() {
        const std::string before = std::exchange(waiting_, {});
        const std::string bytes = some();
        waiting_ = before + bytes;
        return !bytes.empty();
    }
    std::string up_to(const std::string& mark) {
        while (waiting_.find(mark) == std::string::npos)
            if (!more()) return {};
        const std::size_t end = waiting_.find(mark) + mark.size();
        std::string text = waiting_.substr(0, end);
        waiting_.erase(0, end);
        return text;
    }

    int socket_;
    std::string waiting_;
};

}  // namespace plendix
