// A server with routes of every kind, for tests that ask it over real sockets.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include "http/server.h"
#include "support/http_client.h"
#include "usage.h"

namespace plendix {

using namespace std::chrono_literals;

constexpr auto patience = 20s;

inline bool comes_true(const std::function<bool()>& condition) {
    for (const auto end = std::chrono::steady_clock::now() + patience; !condition();) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

constexpr std::size_t frame_bytes = 50'000;

/// Frames for many viewers.
struct Reel {
    std::atomic<int> published{0};
    std::atomic<int> viewers{0};
    SharedBytes frame = shared_bytes(std::string(frame_bytes, 'f'));
};

class ReelViewer : public PieceStream {
public:
    explicit ReelViewer(Reel& reel) : reel_(reel) { ++reel_.viewers; }
    void over() override { --reel_.viewers; }

protected:
    Pieces next() override {
        if (seen_ == reel_.published) return {};
        ++seen_;
        return {{reel_.frame}, false};
    }

private:
    Reel& reel_;
    int seen_ = 0;
};

struct ServerUnderTest {
    explicit ServerUnderTest(GuardOptions guarding = {}, ServerOptions serving = {}) {
        serving.listen.port = 0;
        guard = std::make_unique<Guard>(guarding);
        guard->add_routes(router, "1.2.3");
        add_routes();
        server = std::make_unique<Server>(serving, router, *guard);
    }

    void add_routes() {
        const RouteOptions open{true, Lane::server};
        router.add(
            "GET", "/", [](const Request&) { return text_response("page"); }, open);
        router.add("GET", "/api/cameras/{number}", [](const Request& request) {
            return text_response("camera " + std::to_string(request.number("number")) + " of " +
                                 request.asked("name").value_or("nobody"));
        });
        router.add("PATCH", "/api/cameras/{number}",
                   [](const Request& request) { return text_response("new: " + request.body); });
        router.add("GET", "/camera/{number}.jpg", [](const Request& request) {
            return json_response({{"width", request.asked_number("width", 1, 100, 7)}});
        });
        router.add("GET", "/wall/{id:text}", [](const Request& request) {
            return text_response(request.text("id")).with("X-User", request.user + "!");
        });
        router.add("GET", "/usage", [](const Request&) -> Response { throw UsageError("not so"); });
        router.add("GET", "/broken", [](const Request&) -> Response { throw std::out_of_range("secret"); });
        router.add("GET", "/forged", [](const Request& request) {
            return text_response("").with("X-Name", request.asked("name").value_or("a\r\nSet-Cookie: b"));
        });
        router.add("GET", "/slow",
                   [this](const Request&) {
                       slow.get_future().wait_for(patience);
                       return text_response("at last");
                   },
                   {false, Lane::worker});
        router.add("GET", "/stream", [this](const Request&) {
            const auto viewer = std::make_shared<ReelViewer>(reel);
            const std::lock_guard<std::mutex> lock(mutex);
            streams.push_back(viewer);
            return stream_response("video/x", viewer);
        });
    }

    void publish() {
        ++reel.published;
        const std::lock_guard<std::mutex> lock(mutex);
        for (const auto& stream : streams)
            stream->wake();
    }
    HttpClient client(const std::string& own = "127.0.0.1") const {
        return {"127.0.0.1", server->port(), own};
    }
    Reply ask(const std::string& request) const {
        HttpClient asking = client();
        asking.say(request);
        return asking.reply(request.compare(0, 4, "HEAD") == 0);
    }

    Reel reel;
    std::promise<void> slow;
    std::mutex mutex;
    std::vector<std::shared_ptr<Stream>> streams;  // guarded by mutex; added by the server's thread
    Router router;
    std::unique_ptr<Guard> guard;
    std::unique_ptr<Server> server;
};

}  // namespace plendix
