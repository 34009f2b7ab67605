// What HTTP costs without a camera: requests a second for a small body, and pictures to many viewers of
// one stream, as fast as it goes (/endless) and 20 a second (/paced). Prints Markdown lines; CPU is that of
// the serving process alone, its clients are another. Usage: http_load [SECONDS_EACH]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "http/server.h"

namespace {

using namespace plendix;
using Clock = std::chrono::steady_clock;

constexpr std::size_t frame_bytes = 100'000;

/// Always has another frame: what the server can send at all.
class Endless : public PieceStream {
public:
    explicit Endless(SharedBytes frame) : frame_(std::move(frame)) {}

protected:
    Pieces next() override { return {{frame_}, false}; }

private:
    SharedBytes frame_;
};

/// Has a frame when the clock of all viewers ticked.
class Paced : public PieceStream {
public:
    Paced(SharedBytes frame, const std::atomic<int>& ticks) : frame_(std::move(frame)), ticks_(ticks) {
        seen_ = ticks_;
    }

protected:
    Pieces next() override {
        if (seen_ == ticks_) return {};
        seen_ = ticks_;
        return {{frame_}, false};
    }

private:
    SharedBytes frame_;
    const std::atomic<int>& ticks_;
    int seen_ = 0;
};

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double resident_mib() {
    std::FILE* file = std::fopen("/proc/self/statm", "r");
    long size = 0;
    long resident = 0;
    if (file == nullptr || std::fscanf(file, "%ld %ld", &size, &resident) != 2) return 0;
    std::fclose(file);
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / (1 << 20);
}

int connected(int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::exit(1);
    return descriptor;
}

void say(int descriptor, const std::string& text) {
    if (send(descriptor, text.data(), text.size(), 0) < 0) std::exit(1);
}

std::string request(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

/// Clients that read whatever comes; where it is `again`, each reply is followed by the next request.
[[noreturn]] void run_clients(int port, int count, const std::string& path, bool again, double seconds) {
    std::vector<pollfd> sockets;
    for (int i = 0; i < count; ++i) {
        sockets.push_back({connected(port), POLLIN, 0});
        say(sockets.back().fd, request(path));
    }
    std::vector<char> buffer(1U << 20U);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end && poll(sockets.data(), sockets.size(), 100) >= 0)
        for (const pollfd& one : sockets) {
            if (one.revents == 0) continue;
            if (recv(one.fd, buffer.data(), buffer.size(), 0) <= 0) std::exit(1);
            if (again) say(one.fd, request(path));
        }
    std::_Exit(0);
}

int open_listener(int& port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(listener, 256) != 0)
        std::exit(1);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return listener;
}

/// The floor: a loop that sends the same frame to whoever can take some, and reads nothing.
void run_bare(int clients, double seconds) {
    int port = 0;
    const int listener = open_listener(port);
    const double cpu = cpu_seconds();
    const pid_t child = fork();
    if (child == 0) run_clients(port, clients, "/", false, seconds);
    std::vector<pollfd> sockets;
    for (int i = 0; i < clients; ++i)
        sockets.push_back({accept(listener, nullptr, nullptr), POLLOUT, 0});
    const std::string frame(frame_bytes, 'p');
    double sent = 0;
    const auto start = Clock::now();
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0 && poll(sockets.data(), sockets.size(), 100) >= 0)
        for (const pollfd& one : sockets)
            if (one.revents != 0)
                sent += static_cast<double>(std::max<ssize_t>(
                    0, send(one.fd, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL)));
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("| bare loop | %d | - | %.1f | %.0f %% | - |\n", clients, sent / took / 1e6,
                (cpu_seconds() - cpu) / took * 100);
    for (const pollfd& one : sockets)
        close(one.fd);
    close(listener);
}

class Bench {
public:
    explicit Bench(double seconds) : seconds_(seconds), guard_({}) {
        router_.add("GET", "/small", [](const Request&) { return text_response("{\"number\": 1}"); });
        router_.add("GET", "/endless", [this](const Request&) {
            return stream_response("video/x", std::make_shared<Endless>(frame_));
        });
        router_.add("GET", "/paced", [this](const Request&) {
            const std::lock_guard<std::mutex> lock(mutex_);
            viewers_.push_back(std::make_shared<Paced>(frame_, ticks_));
            return stream_response("video/x", viewers_.back());
        });
        ServerOptions options;
        options.listen.port = 0;
        server_ = std::make_unique<Server>(options, router_, guard_);
    }

    void run(const char* path, int clients, bool again) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            viewers_.clear();
        }
        while (server_->counts().open_connections > 0)
            tick();
        const ServerCounts before = server_->counts();
        const double cpu = cpu_seconds();
        const auto start = Clock::now();
        const pid_t child = fork();
        if (child == 0) run_clients(server_->port(), clients, path, again, seconds_);
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0)
            tick();
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        const ServerCounts after = server_->counts();
        std::printf("| %s | %d | %.0f | %.1f | %.0f %% | %.0f |\n", path, clients,
                    static_cast<double>(after.requests - before.requests) / took,
                    static_cast<double>(after.bytes - before.bytes) / took / 1e6,
                    (cpu_seconds() - cpu) / took * 100, resident_mib());
        std::fflush(stdout);
        if (status != 0) std::exit(1);
    }

private:
    void tick() {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ++ticks_;
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& viewer : viewers_)
            viewer->wake();
    }

    double seconds_;
    SharedBytes frame_ = shared_bytes(std::string(frame_bytes, 'p'));
    std::atomic<int> ticks_{0};
    std::mutex mutex_;
    std::vector<std::shared_ptr<Stream>> viewers_;
    Router router_;
    Guard guard_;
    std::unique_ptr<Server> server_;
};

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3;
    Bench bench(seconds);
    std::puts("| Path | Clients | Requests/s | MB/s | CPU | RSS MiB |\n|---|---|---|---|---|---|");
    for (const int clients : {1, 50, 200})
        bench.run("/small", clients, true);
    for (const int clients : {1, 50, 200})
        bench.run("/endless", clients, false);
    for (const int clients : {1, 50, 200})
        bench.run("/paced", clients, false);
    for (const int clients : {1, 50, 200})
        run_bare(clients, seconds);
    return 0;
}
