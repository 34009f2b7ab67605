// The HTTP server and who may ask it, over real sockets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "http/http_error.h"
#include "http/server.h"
#include "support/folder.h"
#include "support/http_client.h"
#include "usage.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

constexpr auto patience = 20s;

bool comes_true(const std::function<bool()>& condition) {
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

class Viewer : public PieceStream {
public:
    explicit Viewer(Reel& reel) : reel_(reel) { ++reel_.viewers; }
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
            const auto viewer = std::make_shared<Viewer>(reel);
            streams.push_back(viewer);
            return stream_response("video/x", viewer);
        });
    }

    void publish() {
        ++reel.published;
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
    std::vector<std::shared_ptr<Stream>> streams;  // added by the server's thread, read after replies
    Router router;
    std::unique_ptr<Guard> guard;
    std::unique_ptr<Server> server;
};

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

TEST(Http, LetsPagesOfItsOwnChangeThingsAndNoOthers) {
    GuardOptions options;
    options.host_names = {"Cameras.example"};
    const ServerUnderTest tested(options);
    const struct {
        const char* headers;  // of a GET, and of a PATCH
        int get;
        int patch;
    } rows[] = {
        {"Host: localhost\r\n", 200, 403},
        {"Host: localhost\r\nX-Plendix: 1\r\n", 200, 200},
        {"Host: localhost\r\nX-Plendix: 0\r\n", 200, 403},
        {"Host: [::1]:80\r\nX-Plendix: 1\r\n", 200, 200},
        {"Host: CAMERAS.example:8069\r\nX-Plendix: 1\r\n", 200, 200},
        {"Host: evil.example\r\nX-Plendix: 1\r\n", 421, 421},
        {"Host: localhost.evil.example\r\nX-Plendix: 1\r\n", 421, 421},
        {"Host: 10.0.0.1\r\nX-Plendix: 1\r\n", 421, 421},
        {"Host: localhost\r\nHost: evil.example\r\n", 400, 400},
        {"Host: <script>\r\n", 421, 421},
        {"Host: \r\n", 421, 421},
        {"", 400, 400},
        {"Host: localhost:8069\r\nOrigin: http://localhost:8069\r\nX-Plendix: 1\r\n", 200, 200},
        {"Host: localhost\r\nOrigin: https://localhost:443\r\nX-Plendix: 1\r\n", 200, 200},
        {"Host: localhost:8069\r\nOrigin: http://localhost:8070\r\nX-Plendix: 1\r\n", 403, 403},
        {"Host: localhost\r\nOrigin: http://evil.example\r\nX-Plendix: 1\r\n", 403, 403},
        {"Host: localhost\r\nOrigin: null\r\nX-Plendix: 1\r\n", 403, 403},
        {"Host: localhost\r\nSec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: no-cors\r\nX-Plendix: 1\r\n", 403,
         403},
        {"Host: localhost\r\nSec-Fetch-Site: cross-site\r\nSec-Fetch-Mode: navigate\r\n", 200, 403},
        {"Host: localhost\r\nSec-Fetch-Site: same-origin\r\nX-Plendix: 1\r\n", 200, 200},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.headers);
        const std::string rest = std::string(" /api/cameras/1 HTTP/1.1\r\n") + row.headers;
        EXPECT_EQ(tested.ask("GET" + rest + "\r\n").status, row.get);
        EXPECT_EQ(tested.ask("PATCH" + rest + "Content-Length: 1\r\n\r\nx").status, row.patch);
    }
}

void write_file(const std::string& path, const std::string& text, mode_t mode) {
    std::ofstream(path) << text;
    chmod(path.c_str(), mode);
}

TEST(Http, TellsWhatIsMissingBeforeItListensToOthers) {
    const TemporaryFolder folder;
    const std::string token(32, 't');
    write_file("tokens", token, 0600);
    write_file("open", token, 0604);
    write_file("short", "secret", 0600);
    write_file("old", "anna:$6$salt$hash", 0600);
    const struct {
        std::string listen, passwords, tokens;
        bool tls, insecure;
        const char* text;  // empty: it may
    } rows[] = {
        {"127.0.0.9", "", "", false, false, ""},
        {"[::1]:80", "", "", false, false, ""},
        {"0.0.0.0", "", "", true, false, "--password-file or --token-file"},
        {"[::]", "", "", false, true, "--password-file or --token-file"},
        {"192.0.2.1:8069", "", "tokens", false, false, "--insecure"},
        {"192.0.2.1:8069", "", "tokens", true, false, ""},
        {"192.0.2.1:8069", "", "tokens", false, true, ""},
        {"127.0.0.1", "", "open", false, false, "chmod o= open"},
        {"127.0.0.1", "", "short", false, false, "short:1: no token"},
        {"127.0.0.1", "old", "", false, false, "old:1: no yescrypt hash"},
        {"127.0.0.1", "none", "", false, false, "cannot read none"},
        {"localhost:1", "", "", false, false, "--listen 'localhost:1'"},
        {"127.0.0.1:65536", "", "", false, false, "--listen '127.0.0.1:65536'"},
        {"::1:", "", "", false, false, "--listen '::1:'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.listen + row.passwords + row.tokens);
        std::string said;
        try {
            const Guard guard(
                {parse_listen_address(row.listen), {}, row.passwords, row.tokens, row.tls, row.insecure});
        } catch (const UsageError& error) {
            said = error.what();
        }
        EXPECT_THAT(said, HasSubstr(row.text));
        EXPECT_EQ(said.empty(), *row.text == '\0');
    }
}

TEST(Http, AsksForANameAndAPassword) {
    const TemporaryFolder folder;
    const std::string token(40, 't');
    write_file("tokens", "# of the monitor\n" + token + "\n", 0600);
    ASSERT_EQ(std::system("umask 077; echo 'correct horse' | " PLENDIX_COMMAND " password anna >passwords"),
              0);
    GuardOptions options;
    options.password_file = "passwords";
    options.token_file = "tokens";
    const ServerUnderTest tested(options);
    const auto get = [&tested](const std::string& path, const std::string& header) {
        return tested.ask("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + header + "\r\n");
    };
    const auto log_in = [&tested](const std::string& own, const std::string& body) {
        HttpClient client = tested.client(own);
        client.say("POST /api/login HTTP/1.1\r\nHost: localhost\r\nX-Plendix: 1\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + body);
        return client.reply();
    };
    EXPECT_EQ(get("/wall/a", "").status, 401);
    EXPECT_EQ(get("/nothing", "").status, 401);
    EXPECT_EQ(get("/", "").body, "page");
    EXPECT_EQ(get("/api/session", "").body, "{\"login\":true,\"name\":null,\"version\":null}\n");
    EXPECT_EQ(get("/wall/a", "Authorization: Bearer " + token + "\r\n").status, 200);
    EXPECT_EQ(get("/wall/a", "Authorization: Bearer " + token.substr(1) + "u\r\n").status, 401);

    const std::string good = R"({"name": "anna", "password": "correct horse"})";
    const Reply in = log_in("127.0.0.2", good);
    EXPECT_EQ(in.status, 200);
    EXPECT_THAT(in.head, HasSubstr("HttpOnly; SameSite=Strict\r\n"));
    const std::size_t at = in.head.find("plendix_");
    const std::string cookie = "Cookie: a=b; " + in.head.substr(at, in.head.find(';', at) - at) + "\r\n";
    EXPECT_THAT(get("/wall/a", cookie).head, HasSubstr("X-User: anna!"));
    EXPECT_EQ(get("/api/session", cookie).body, "{\"login\":true,\"name\":\"anna\",\"version\":\"1.2.3\"}\n");
    // A stream ends with the session that it was begun in.
    HttpClient viewer = tested.client();
    viewer.say("GET /stream HTTP/1.1\r\nHost: localhost\r\n" + cookie + "\r\n");
    EXPECT_EQ(viewer.head().status, 200);
    EXPECT_EQ(tested.ask("POST /api/logout HTTP/1.1\r\nHost: localhost\r\nX-Plendix: 1\r\n" + cookie + "\r\n")
                  .status,
              204);
    EXPECT_EQ(get("/wall/a", cookie).status, 401);
    EXPECT_EQ(viewer.some(), "");

    for (const char* wrong : {"", "[]", "{\"password\": 1}", "{\"name\": \"anna\"}"})
        EXPECT_EQ(log_in("127.0.0.3", wrong).status, 400) << wrong;
    std::map<int, int> answers;
    for (const char* name : {"anna", "nobody", "anna", "anna", "anna", "anna", "anna"})
        ++answers[log_in("127.0.0.4", std::string(R"({"name": ")") + name + R"(", "password": "wrong"})")
                      .status];
    EXPECT_EQ(answers, (std::map<int, int>{{403, 5}, {429, 2}}));
    EXPECT_EQ(log_in("127.0.0.4", good).status, 429);
    EXPECT_EQ(log_in("127.0.0.5", good).status, 200);
}

TEST(Http, SpeaksTls) {
    const TemporaryFolder folder;
    ASSERT_EQ(std::system("umask 077; openssl req -x509 -newkey rsa:2048 -nodes -keyout key -out certificate "
                          "-days 2 -subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 2>log && "
                          "openssl genrsa -out other 2048 2>>log"),
              0);
    GuardOptions guarding;
    guarding.tls = true;
    ServerOptions serving;
    serving.tls_certificate = "certificate";
    serving.tls_key = "key";
    ServerUnderTest tested(guarding, serving);
    const std::string curl = "curl -sS --max-time 20 --cacert certificate " + tested.server->url();
    EXPECT_EQ(std::system((curl + "api/cameras/4 >body && grep -q 'camera 4 of nobody' body").c_str()), 0);
    auto stream = std::async(std::launch::async, [&] {
        return std::system((curl + "stream 2>log | head -c 100000 | wc -c >size").c_str());
    });
    ASSERT_TRUE(comes_true([&] { return tested.server->counts().open_streams == 1; }));
    while (stream.wait_for(2ms) != std::future_status::ready)
        tested.publish();
    EXPECT_EQ(std::system("grep -qx 100000 size"), 0);
    serving.tls_key = "other";
    EXPECT_THROW(ServerUnderTest(guarding, serving), UsageError);
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
