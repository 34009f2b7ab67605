// Who may ask the HTTP server, and what for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <map>

#include "http/server_under_test.h"
#include "support/folder.h"

namespace plendix {
namespace {

using testing::HasSubstr;

TEST(Guard, LetsPagesOfItsOwnChangeThingsAndNoOthers) {
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

TEST(Guard, TellsWhatIsMissingBeforeItListensToOthers) {
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

TEST(Guard, AsksForANameAndAPassword) {
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

TEST(Guard, SpeaksTls) {
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

}  // namespace
}  // namespace plendix
