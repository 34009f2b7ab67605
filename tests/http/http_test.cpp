// The HTTP server over real sockets: routes, streams, clients of every kind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <vector>

#include "http/server_under_test.h"

namespace plendix {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string stream_request = "GET /stream HTTP/1.1\r\nHost: localhost\r\n\r\n";

TEST(Http, AnswersWhatItsRoutesSay) {
    const ServerUnderTest tested;
    const std::string host = " HTTP/1.1\r\nHost: localhost\r\n";
    const std::string change = host + "X-Plendix: 1\r\n";
    const std::string large(70'000, 'x');
    const struct {
        std::string request;
        int status;
        const char* text;  // in headers or body
    } rows[] = {
        {"GET /api/cameras/12?name=Tor+%C3%A4%26 HTTP/1.0\r\nHost: 127.0.0.1:1\r\n\r\n", 200,
         "camera 12 of Tor \xC3\xA4&"},
        {"GET /api/cameras/12" + host + "\r\n", 200, "default-src 'self'"},
        {"GET /api/cameras/12" + host + "\r\n", 200, "nosniff"},
        {"GET /api/cameras/1x" + host + "\r\n", 404, "{\"error\":"},
        {"GET /api/cameras/99999999999999999999" + host + "\r\n", 404, ""},
        {"GET /api/cameras/-1" + host + "\r\n", 404, ""},
        {"GET /api/cameras/1/" + host + "\r\n", 404, ""},
        {"GET /wall/a%2Fb" + host + "\r\n", 404, ""},
        {"GET /wall/%3Cb%3E" + host + "\r\n", 200, "<b>"},
        {"GET /wall/../wall/a" + host + "\r\n", 400, ""},
        {"GET /wall/%2e%2E" + host + "\r\n", 400, ""},
        {"GET /wall/a%00b" + host + "\r\n", 400, ""},
        {"GET /wall/%ff" + host + "\r\n", 400, ""},
        {"GET /wall/%2" + host + "\r\n", 400, ""},
        {"GET http://localhost/wall/a" + host + "\r\n", 400, ""},
        {"GET /camera/3.jpg?width=100" + host + "\r\n", 200, "{\"width\":100}"},
        {"GET /camera/3.jpg?width=101" + host + "\r\n", 400, "no whole number from 1 to 100"},
        {"GET /camera/3.jpg?width=1e1" + host + "\r\n", 400, ""},
        {"GET /camera/.jpg" + host + "\r\n", 404, ""},
        {"HEAD /camera/3.jpg" + host + "\r\n", 200, "Content-Length: 12"},
        {"HEAD /stream" + host + "\r\n", 200, "video/x"},
        {"DELETE /api/cameras/1" + change + "\r\n", 405, "Allow: GET, HEAD, PATCH"},
        {"PATCH /api/cameras/1" + change + "Content-Length: 2\r\n\r\n{}", 200, "new: {}"},
        {"PATCH /api/cameras/1" + change + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n", 200,
         "new: {}"},
        {"PATCH /api/cameras/1" + change + "Content-Length: 70000\r\n\r\n" + large, 413, "65536"},
        {"PATCH /api/cameras/1" + change + "Transfer-Encoding: chunked\r\n\r\n11170\r\n" + large +
             "\r\n0\r\n\r\n",
         413, "65536"},
        {"PATCH /api/cameras/1" + change + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         400, "one length"},
        {"GET /usage" + host + "\r\n", 400, "not so"},
        {"GET /broken" + host + "\r\n", 500, "could not"},
        {"GET /forged?name=%0d%0aa" + host + "\r\n", 0, ""},
        {"GET /session" + host + "X: " + large + large + "\r\n\r\n", 431, ""},
        {"nonsense\r\n\r\n", 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.request.substr(0, 90));
        const Reply reply = tested.ask(row.request);
        EXPECT_EQ(reply.status, row.status);
        EXPECT_THAT(reply.head + reply.body, HasSubstr(row.text));
        EXPECT_THAT(reply.head + reply.body, Not(HasSubstr("secret")));
    }
    ServerOptions same;
    same.listen.port = tested.server->port();
    EXPECT_THROW(Server(same, tested.router, *tested.guard), Failure);
    HttpClient reused = tested.client();
    for (int i = 0; i < 3; ++i) {
        reused.say(
            "GET /nothing HTTP/1.1\r\nHost: localhost\r\n\r\nGET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
        EXPECT_EQ(reused.reply().status, 404);
        EXPECT_EQ(reused.reply().body, "page");
    }
}

/// What comes to clients until each has read so many frames, of those that read at all.
bool read_frames(std::vector<HttpClient>& clients, std::size_t asleep, std::vector<std::size_t>& read,
                 std::size_t bytes) {
    std::vector<pollfd> sockets;
    for (const HttpClient& client : clients)
        sockets.push_back({client.descriptor(), POLLIN, 0});
    std::vector<char> buffer(256U << 10U);
    for (;;) {
        bool all = true;
        for (std::size_t i = asleep; i < clients.size(); ++i)
            all = all && read[i] >= bytes;
        if (all) return true;
        if (poll(sockets.data() + asleep, sockets.size() - asleep, 10'000) <= 0) return false;
        for (std::size_t i = asleep; i < clients.size(); ++i) {
            if (sockets[i].revents == 0) continue;
            const ssize_t count = recv(clients[i].descriptor(), buffer.data(), buffer.size(), 0);
            if (count <= 0) return false;
            read[i] += static_cast<std::size_t>(count);
        }
    }
}

TEST(Http, ViewersWhoDoNotReadCostThemselvesOnly) {
    constexpr std::size_t count = 200;
    constexpr std::size_t asleep = 20;
    constexpr std::size_t frames = 40;
    ServerUnderTest tested;
    std::vector<HttpClient> clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.emplace_back("127.0.0.1", tested.server->port(), "127.0.0.1", i < asleep ? 16'384 : 0);
        clients.back().say(stream_request);
        ASSERT_EQ(clients.back().head().status, 200);
    }
    std::vector<std::size_t> read(count, 0);
    for (std::size_t frame = 1; frame <= frames; ++frame) {
        tested.publish();
        ASSERT_TRUE(read_frames(clients, asleep, read, frame * frame_bytes)) << frame;
    }
    // Of those who sleep it took only what fits between server and client.
    const std::size_t all = frames * frame_bytes;
    EXPECT_LT(tested.server->counts().bytes - (count - asleep) * all, asleep * all / 2);
    EXPECT_EQ(tested.ask("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n").body, "page");

    const auto start = std::chrono::steady_clock::now();
    tested.server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_EQ(tested.reel.viewers, 0);
    tested.publish();  // wakes streams of nobody
}

/// Gives as many bytes as were put in; each is put in by one of many threads, or at the worst moment.
class Drip : public Stream {
public:
    explicit Drip(int late) : late_(late) {}
    StreamRead read(std::uint8_t* to, std::size_t) override {
        if (given_ == filled_) {
            if (late_-- > 0) drop();  // when it was found that there is nothing
            return {};
        }
        *to = 'd';
        ++given_;
        return {StreamRead::State::bytes, 1};
    }
    void drop() {
        ++filled_;
        wake();
    }

private:
    std::atomic<int> filled_{0};
    int given_ = 0;
    int late_;
};

TEST(Http, NoWakeIsLost) {
    constexpr int drops = 3000;
    std::vector<std::shared_ptr<Drip>> drips;
    for (int i = 0; i < 9; ++i)
        drips.push_back(std::make_shared<Drip>(i < 8 ? 0 : 100));
    Router router;
    router.add("GET", "/{number}", [&drips](const Request& request) {
        return stream_response("text/plain", drips[static_cast<std::size_t>(request.number("number"))]);
    });
    Guard guard({});
    ServerOptions options;
    options.listen.port = 0;
    Server server(options, router, guard);
    const auto listen = [&server](int number, int bytes) {
        HttpClient client("127.0.0.1", server.port());
        client.say("GET /" + std::to_string(number) + " HTTP/1.0\r\nHost: localhost\r\n\r\n");
        client.head();
        int got = 0;
        for (std::string some; got < bytes && !(some = client.some()).empty();)
            got += static_cast<int>(some.size());
        return got;
    };
    EXPECT_EQ(listen(8, 100), 100);
    std::vector<std::future<int>> readers;
    for (int i = 0; i < 8; ++i)
        readers.push_back(std::async(std::launch::async, listen, i, i < 4 ? 2 * drops : drops / 10));
    std::vector<std::future<void>> writers;
    for (int i = 0; i < 8; ++i)
        for (int hand = 0; hand < 2; ++hand)
            writers.push_back(std::async(std::launch::async, [&drips, i] {
                for (int drop = 0; drop < drops; ++drop) {
                    drips[static_cast<std::size_t>(i)]->drop();
                    if (drop % 8 == 0) std::this_thread::yield();
                }
            }));
    for (int i = 0; i < 8; ++i) {
        const int got = readers[static_cast<std::size_t>(i)].get();
        EXPECT_GE(got, i < 4 ? 2 * drops : drops / 10);  // the others leave while it drips
    }
}

TEST(Http, NoticesWhoWentAwayAndWhoDawdles) {
    ServerOptions options;
    options.request_time = 1s;
    options.connections_per_address = 5;
    ServerUnderTest tested({}, options);
    auto leaving = std::make_unique<HttpClient>(tested.client());
    leaving->say(stream_request);
    HttpClient staying = tested.client();
    staying.say(stream_request);
    HttpClient waiting = tested.client();
    waiting.say("GET /slow HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(leaving->head().status, 200);
    EXPECT_EQ(staying.head().status, 200);
    HttpClient slow_head = tested.client();
    HttpClient slow_body = tested.client();
    slow_body.say(
        "PATCH /api/cameras/1 HTTP/1.1\r\nHost: localhost\r\nX-Plendix: 1\r\nContent-Length: 999\r\n\r\n");
    EXPECT_EQ(tested.client().some(), "");  // one too many of this address
    EXPECT_EQ(tested.reel.viewers, 2);
    leaving.reset();
    for (HttpClient* dawdler : {&slow_head, &slow_body})
        EXPECT_TRUE(comes_true([&] { return !dawdler->say("x"); }));
    EXPECT_TRUE(comes_true([&] { return tested.reel.viewers == 1; }));
    tested.publish();
    EXPECT_NE(staying.some(), "");
    EXPECT_TRUE(comes_true([&] { return tested.server->counts().open_connections == 2; }));
    tested.slow.set_value();
    EXPECT_EQ(waiting.reply().body, "at last");
}

}  // namespace
}  // namespace plendix
