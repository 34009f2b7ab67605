// `plendix serve` as programs meet it: the built command, simulated cameras, real sockets.
#include <fcntl.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <set>

#include "host/scratch_folder.h"
#include "record/decode_check.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/folder.h"
#include "support/http_client.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using plendix::Reply;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

class Serve : public CameraBench {
protected:
    ~Serve() override {
        if (child_ > 0) end(SIGKILL);
    }
    static void configure(const std::vector<std::pair<std::string, std::string>>& cameras,
                          const std::string& more = {}) {
        std::ofstream file("cameras.toml");
        file << more;
        for (const auto& [address, rest] : cameras)
            file << "[[camera]]\naddress = \"" << address << "\"\n" << rest << "\n";
    }
    void serve(std::vector<std::string> words = {"--config", "cameras.toml", "--state", "state"}) {
        int page[2];
        ASSERT_EQ(pipe2(page, O_CLOEXEC), 0);
        const int said = open("said", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        words.insert(words.begin(), {"plendix", "serve", "--listen", "127.0.0.1:0"});
        words.insert(words.end(), {"--plugin", PLENDIX_LIBRARY});
        child_ = start_command(words, page[1], said);
        close(said);
        close(page[1]);
        std::string line(100, '\0');
        line.resize(static_cast<std::size_t>(std::max<ssize_t>(read(page[0], line.data(), line.size()), 0)));
        close(page[0]);
        const std::size_t port = line.rfind(':');
        ASSERT_NE(port, std::string::npos) << text("said");
        port_ = std::stoi(line.substr(port + 1));
    }
    int end(int signal = SIGTERM) {
        kill(child_, signal);
        return exit_code(std::exchange(child_, -1));
    }

    HttpClient client(const std::string& path, int buffer = 0, const std::string& header = {}) const {
        HttpClient asking("127.0.0.1", port_, "127.0.0.1", buffer);
        asking.say("GET " + path + " HTTP/1.0\r\nHost: localhost\r\n" + header + "\r\n");
        return asking;
    }
    Reply ask(const std::string& method, const std::string& path, const std::string& body = {}) const {
        HttpClient asking("127.0.0.1", port_);
        asking.say(method + ' ' + path + " HTTP/1.1\r\nHost: localhost\r\nX-Plendix: 1\r\nContent-Length: " +
                   std::to_string(body.size()) + "\r\n\r\n" + body);
        return asking.reply(method == "HEAD");
    }
    json get(const std::string& path) const { return json::parse(ask("GET", path).body); }
    json camera(int number) const { return get("/api/cameras/" + std::to_string(number)); }
    static bool await(const std::function<bool()>& condition, std::chrono::seconds limit = 30s) {
        const auto end = Clock::now() + limit;
        while (!condition() && Clock::now() < end)
            std::this_thread::sleep_for(5ms);
        return condition();
    }
    bool live(int number) const {
        return await([&] { return camera(number)["state"] == "live"; });
    }
    /// All that comes until the connection ends.
    static std::string rest(HttpClient& stream) {
        std::string all;
        for (std::string some; !(some = stream.some()).empty();)
            all += some;
        return all;
    }

    TemporaryFolder folder_;
    pid_t child_ = -1;
    int port_ = 0;
};

TEST_F(Serve, TellsProgramsWhatTheDriverSaidAndTakesNothingThatIsWrong) {
    start(sensor(320, 240), 2);
    configure({{own_address(1), "name = '<script>\"\\'\ncodec = \"jpeg\""},
               {own_address(9), "name = \"Nobody\""},
               {own_address(2), "codec = \"h264\""}});
    serve();
    EXPECT_EQ(ask("GET", "/readyz").status, 503) << "before it knows";
    EXPECT_EQ(camera(2)["state"], "connecting");
    ASSERT_TRUE(live(1) && live(3));
    const struct {
        const char *method, *path, *body;
        int status;
        const char* text;  // in headers or body
    } rows[] = {
        {"GET", "/", "", 200, "<!doctype html>"},
        {"GET", "/readyz", "", 503, "camera 2 connecting\n"},
        {"GET", "/healthz", "", 200, "ok"},
        {"GET", "/api/cameras/1", "", 200, "<script>\\\"\\\\"},
        {"GET", "/api/cameras/4", "", 404, "camera 4 is not there"},
        {"GET", "/api/cameras/999999999", "", 404, "not there"},
        {"GET", "/camera/1.jpg", "", 200, "X-Picture-Age-Ms: "},
        {"GET", "/camera/3.jpg?width=100", "", 200, "X-Picture-Time: 20"},
        {"GET", "/camera/1.jpg?width=0", "", 400, "from 1 to"},
        {"GET", "/camera/2.jpg", "", 503, "Content-Type: image/jpeg"},
        {"GET", "/camera/1.mp4", "", 409, "take .mjpeg or .mkv"},
        {"GET", "/camera/3.mjpeg", "", 409, "take .mkv, .ts or .mp4"},
        {"PATCH", "/api/cameras/1", R"({"quality": 3, "rate": 99})", 400, "rate 99"},
        {"PATCH", "/api/cameras/1", R"({"address": 7})", 400, "address 7"},
        {"PATCH", "/api/cameras/1", R"({"name": "Nobody"})", 400, "camera 2's, too"},
        {"PATCH", "/api/cameras/1", "{", 400, "no JSON"},
        {"PATCH", "/api/cameras/1", "[[[[[[[[1]]]]]]]]", 400, "too deep"},
        {"POST", "/api/cameras/1/relay", R"({"on": 1})", 400, "true or false"},
        {"POST", "/api/cameras/1/relay", R"({"on": true, "seconds": 1e300})", 400, "86400"},
        {"POST", "/api/cameras/9/relay", R"({"on": true})", 404, "not there"},
        {"POST", "/api/cameras/1/undo", "", 409, "nothing to take back"},
        {"POST", "/api/wall/x", R"({"visible": [1]})", 404, "no longer"},
        {"GET", "/api/log?after=x", "", 400, "whole number"},
        {"GET", "/api/recordings/1", "", 404, "nothing is recorded"},
        {"GET", "/etc/passwd", "", 404, "nothing of this name"},
        {"GET", "/..%2f..%2fetc/passwd", "", 400, "no path"},
        {"GET", "/metrics", "", 200, "up{camera=\"1\",name=\"<script>\\\"\\\\\"} 1\n"},
        {"GET", "/metrics", "", 200, "output_lost_frames_total{output=\"viewers\",reason=\"slow\"} 0\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.path) + row.body);
        const Reply reply = ask(row.method, row.path, row.body);
        EXPECT_EQ(reply.status, row.status);
        EXPECT_THAT(reply.head + reply.body, HasSubstr(row.text));
        EXPECT_THAT(reply.head, HasSubstr("Content-Security-Policy: default-src 'self'"));
        EXPECT_THAT(reply.head, HasSubstr("nosniff"));
    }
    EXPECT_TRUE(camera(1)["settings"]["quality"].is_null()) << "nothing of what was refused";
    const json described = get("/api/openapi.json")["paths"];
    for (const auto& [path, methods] : described.items())
        for (const auto& [method, operation] : methods.items()) {
            std::string asked = path;
            for (const char* name : {"{camera}", "{id}"})
                if (const std::size_t at = asked.find(name); at != std::string::npos)
                    asked.replace(at, std::string(name).size(), "1");
            const int status = ask(method == "get"     ? "HEAD"
                                   : method == "patch" ? "PATCH"
                                                       : "POST",
                                   asked)
                                   .status;
            EXPECT_TRUE(operation["responses"].contains(std::to_string(status))) << path << ' ' << status;
            EXPECT_NE(status, 405) << path;
        }

    EXPECT_EQ(ask("PATCH", "/api/cameras/1", R"({"quality": 7})").status, 200);
    EXPECT_TRUE(await([&] { return camera(1)["pending"].empty(); }));
    EXPECT_EQ(camera(1)["reported"]["quality"], 7);
    const int idle = fleet->relay(0);
    EXPECT_EQ(ask("POST", "/api/cameras/1/relay", R"({"on": true, "seconds": 600})").status, 204);
    EXPECT_TRUE(await([&] { return fleet->relay(0) != idle && camera(1)["relay"] == true; }));
    EXPECT_EQ(end(), 0);
    EXPECT_EQ(fleet->relay(0), idle) << "nobody else would switch it off";
    serve();
    EXPECT_EQ(camera(1)["settings"]["quality"], 7) << "in force again";
    EXPECT_EQ(end(SIGINT), 0);
}

TEST_F(Serve, NeverShowsAnOldPictureAsLiveAndLosesNoEvent) {
    start(sensor(320, 240), 1);
    serve({own_address(1), "--state", "state"});
    ASSERT_TRUE(live(1));
    HttpClient first = client("/api/events");
    std::string beginning;
    while (beginning.find("\nid: ") == std::string::npos && beginning.size() < 100'000)
        beginning += first.some();
    const std::string id = beginning.substr(beginning.find("id: ") + 4, 14);
    EXPECT_EQ(ask("POST", "/api/cameras/1/recording", R"({"on": true})").status, 204);
    EXPECT_TRUE(await([&] { return camera(1)["recording"] == true; }));
    HttpClient again = client("/api/events", 0, "Last-Event-ID: " + id + "\r\n");
    std::string missed;
    while (missed.find("event: recording") == std::string::npos && missed.size() < 100'000)
        missed += again.some();
    EXPECT_THAT(missed, testing::Not(HasSubstr("event: gap")));

    fleet->inject(0, parse_fault("silent", "8s"));
    const auto silent = Clock::now();
    EXPECT_TRUE(await([&] { return ask("GET", "/camera/1.jpg").status == 503; }));
    EXPECT_LT(Clock::now() - silent, 4s);
    EXPECT_TRUE(await([&] {
        EXPECT_EQ(ask("GET", "/camera/1.jpg").status, 503);
        return camera(1)["state"] == "silent";
    }));
    EXPECT_THAT(ask("GET", "/readyz").body, HasSubstr("camera 1 silent"));
    EXPECT_TRUE(await([&] { return ask("GET", "/camera/1.jpg").status == 200; }));
    EXPECT_EQ(end(), 0);
}

/// Whole messages of the page's streams: two lengths of four bytes, JSON, data.
std::vector<json> messages(const std::string& stream) {
    std::vector<json> all;
    const auto length = [&stream](std::size_t at) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < 4; ++i)
            value = value << 8U | static_cast<unsigned char>(stream.at(at + i));
        return value;
    };
    for (std::size_t at = 0; at + 8 <= stream.size();) {
        const std::size_t text = length(at);
        if (at + 8 + text + length(at + 4) > stream.size()) break;
        all.push_back(json::parse(stream.substr(at + 8, text)));
        all.back()["bytes"] = length(at + 4);
        at += 8 + text + length(at + 4);
    }
    return all;
}

/// Sockets at descriptors that select() can wait for.
std::size_t low_sockets(pid_t process) {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
        std::error_code gone;
        const bool low = std::stoi(entry.path().filename().string()) < FD_SETSIZE;
        count += low && fs::read_symlink(entry.path(), gone).string().rfind("socket:", 0) == 0 ? 1U : 0U;
    }
    return count;
}

TEST_F(Serve, ViewersCostNoCameraAnythingAndRecordingsPlayWhole) {
    start(sensor(320, 240), 2);
    configure({{own_address(1), "codec = \"jpeg\""}, {own_address(2), "codec = \"h264\""}},
              "[record]\noutput = \"kept\"\n");
    serve({"--config", "cameras.toml"});
    ASSERT_TRUE(live(1) && live(2));
    std::vector<HttpClient> viewers;
    for (int i = 0; i < 8; ++i)
        for (const char* path : {"/camera/1.mkv", "/camera/1.mjpeg", "/camera/2.ts", "/camera/2.mp4",
                                 "/api/live/1", "/api/live/2", "/api/events", "/api/wall"})
            viewers.push_back(client(path, 16'384));  // who does not read from now on
    HttpClient awake = client("/api/live/2");
    EXPECT_EQ(awake.head().status, 200);
    const auto keys = [this] { return camera(2)["counters"]["key_frames"].get<int>(); };
    std::string seen;
    for (const int begun = keys(); keys() < begun + 3;)
        seen += awake.some();
    EXPECT_GT(messages(seen).size(), 3U);
    for (const int number : {1, 2})
        EXPECT_EQ(camera(number)["counters"]["lost_blocks"], 0);
    EXPECT_LT(low_sockets(child_), viewers.size() / 2) << "the driver can use no others";
    HttpClient played = client("/api/recordings/2/play?from=2026-01-01T00:00:00Z", 16'384);
    EXPECT_EQ(played.head().status, 200);
    const auto asked = Clock::now();
    EXPECT_EQ(end(), 0);
    EXPECT_LT(Clock::now() - asked, 5s);

    const ScratchFolder held("kept");  // by a server that runs, and one that was killed
    std::filesystem::create_directory("kept/.scratch-a1B2c3");
    serve({"--recordings", "kept"});
    EXPECT_TRUE(std::filesystem::exists(held.path()));
    EXPECT_FALSE(std::filesystem::exists("kept/.scratch-a1B2c3"));
    EXPECT_EQ(get("/api/recordings")["cameras"], (json{1, 2}));
    EXPECT_EQ(ask("GET", "/healthz").status, 200) << "without a camera";
    for (const auto& [path, status] :
         {std::pair{"/api/recordings/3", 404},
          {"/api/recordings/1/search?zones=8,0", 400},
          {"/api/recordings/1?from=2026-01-02T00:00:00Z&to=2026-01-01T00:00:00Z", 400},
          {"/api/recordings/1/play?speed=0", 400},
          {"/api/recordings/1/export?from=..%2f", 400},
          {"/api/recordings/1/export/check", 204},
          {"/api/recordings/1/export/check?to=2026-01-01T00:00:00Z", 409}})
        EXPECT_EQ(ask("GET", path).status, status) << path;
    for (const int number : {1, 2}) {
        const std::string path = "/api/recordings/" + std::to_string(number);
        const json segments = get(path)["segments"];
        ASSERT_EQ(segments.size(), 1U);
        HttpClient cut = client(path + "/export");
        EXPECT_EQ(cut.head().status, 200);
        std::ofstream("cut.mkv", std::ios::binary) << rest(cut);
        const DecodeResult whole = check_file("cut.mkv");
        EXPECT_TRUE(whole.clean() && whole.packets > 50) << whole.first_fault;
        // Who reads slowly misses nothing: it waits. From within a group of pictures, too.
        const auto play = [&](const std::string& from) {
            HttpClient slow = client(path + "/play?speed=16&from=" + from, 16'384);
            EXPECT_EQ(slow.head().status, 200);
            std::this_thread::sleep_for(300ms);
            auto pictures = messages(rest(slow));
            pictures.erase(pictures.begin());  // tells the format
            for (std::size_t i = 0; i < pictures.size(); ++i)
                EXPECT_TRUE(
                    pictures[i]["lost"] == 0 && pictures[i]["bytes"] > 0 &&
                    (i == 0 ? pictures[i]["key"] == true : pictures[i]["time"] > pictures[i - 1]["time"]))
                    << pictures[i];
            return pictures;
        };
        const auto all = play(segments[0]["begin"]);
        EXPECT_EQ(all.size(), whole.packets);
        const auto key =
            std::find_if(all.begin() + 1, all.end(), [](const json& one) { return one["key"] == true; });
        ASSERT_GT(all.end() - key, 3);
        const auto part = play((*(key + 3))["time"]);
        EXPECT_EQ(all.end() - key, static_cast<std::ptrdiff_t>(part.size()) + (number == 1 ? 3 : 0));
        EXPECT_EQ(part.back()["time"], all.back()["time"]);
    }
    EXPECT_EQ(end(), 0);
}

}  // namespace
}  // namespace plendix::camera::test
