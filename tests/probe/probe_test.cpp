// What the probe finds at addresses with cameras, with others, and with nobody.
#include <atomic>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "input/input.h"
#include "link/words.h"
#include "probe/addresses.h"
#include "probe/finding_words.h"
#include "probe/prober.h"
#include "probe/report.h"
#include "support/camera_bench.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using Replies = std::vector<std::string>;
/// What one of them sends for a datagram; it keeps its own count of them.
using Behaviour = std::function<Replies(const std::string& datagram)>;

/// Servers on port 69 of own_address(1) and up, which all answer from there.
class Impostors {
public:
    explicit Impostors(std::vector<Behaviour> behaviours) : behaviours_(std::move(behaviours)) {
        for (std::size_t i = 0; i < behaviours_.size(); ++i)
            sockets_.push_back(std::make_unique<UdpSocket>(own_address(i + 1), 69));
        thread_ = std::thread([this] { run(); });
    }
    ~Impostors() {
        stop_ = true;
        thread_.join();
    }

private:
    void run() {
        std::vector<pollfd> waiting;
        for (const auto& socket : sockets_)
            waiting.push_back({socket->descriptor(), POLLIN, 0});
        while (!stop_) {
            if (poll(waiting.data(), waiting.size(), 20) <= 0) continue;
            for (std::size_t i = 0; i < sockets_.size(); ++i)
                serve(*sockets_[i], behaviours_[i]);
        }
    }
    static void serve(const UdpSocket& socket, const Behaviour& behaviour) {
        std::array<std::uint8_t, 2048> data{};
        Endpoint asker;
        const auto size = socket.receive(data.data(), data.size(), asker);
        if (size < 0) return;
        for (const auto& reply : behaviour({data.begin(), data.begin() + size}))
            socket.send(reinterpret_cast<const std::uint8_t*>(reply.data()), reply.size(), asker);
    }

    std::vector<Behaviour> behaviours_;
    std::vector<std::unique_ptr<UdpSocket>> sockets_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

std::string word(int value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

const auto grant = "\0\6blksize\0001450\0"s;

/// Grants every request, and sends what `file` says block by block as it is acknowledged.
Behaviour server(std::function<std::string(const std::string& name, int block)> file) {
    return [file, name = ""s](const std::string& datagram) mutable -> Replies {
        if (datagram[1] == 1) {
            name = datagram.c_str() + 2;
            return {grant};
        }
        if (datagram[1] != 4) return {};
        const int block =
            1 + (static_cast<unsigned char>(datagram[2]) << 8 | static_cast<unsigned char>(datagram[3]));
        const std::string data = file(name, block);
        return data.empty() ? Replies{} : Replies{"\0\3"s + word(block) + data};
    };
}

/// A register of a camera of 1600x1200 pixels; nothing of a picture.
std::string registers(const std::string& name, int block) {
    const std::map<int, int> values{{122, 105},  {123, 61750}, {2, 99},    {15, 3},    {16, 2},
                                    {70, 0},     {71, 0},      {72, 1600}, {73, 1200}, {109, 1},
                                    {110, 1028}, {111, 16},    {25, 32}};
    int number = 0;
    return block == 1 && std::sscanf(name.c_str(), "getreg?page=3;reg=%d;", &number) == 1
               ? word(values.at(number))
               : "";
}

/// The only block of a picture that is a trailer, with this JPEG quality and this width.
std::string trailer(int quality, int width) {
    std::string block(90, '\0');
    block[80] = 4;
    block[81] = static_cast<char>(quality);
    return block.replace(86, 4, word(width) + word(64));
}

Finding probe_one(const std::string& address, const ProbeWish& wish) {
    return probe_addresses(parse_addresses({address})[0].addresses, wish, [](auto&) { return true; })[0];
}

TEST(Probe, TellsWhatIsThere) {
    const auto camera_with = [](auto picture) {
        return server([picture](const std::string& name, int block) {
            return name[0] == 'g' ? registers(name, block) : picture(name, block);
        });
    };
    const auto drops_each = [](int which) {  // camera that loses every such request
        return [which, requests = 0, plain = server(registers)](const std::string& datagram) mutable {
            const bool lost =
                datagram[1] == 1 && datagram.find("reg=122") != std::string::npos && ++requests % which == 0;
            return lost ? Replies{} : plain(datagram);
        };
    };
    const struct {
        const char* what;
        std::string words;  // of the finding, or of one of its remarks
        Behaviour behaviour;
    } rows[] = {
        {"foreign", "our own request comes back", [](auto& d) { return Replies{d}; }},
        {"foreign", "another TFTP server answers ('Gone \xEF\xBF\xBD[2J xxx",
         [](auto&) { return Replies{"\0\5\0\1Gone \x1B[2J "s + std::string(60'000, 'x')}; }},
        {"foreign", "sends 7 bytes that mean nothing, begins C8 68 65 6C 6C 6F 0A '.hello.'",
         [](auto&) { return Replies{"\xC8hello\n"}; }},
        {"foreign", "without the block size option",
         [](auto& d) { return d[1] == 1 ? Replies{"\0\3\0\1file"s} : Replies{}; }},
        {"foreign", "no block size but 512",
         [](auto& d) { return d[1] == 1 ? Replies{"\0\6blksize\000512\0"s} : Replies{}; }},
        {"foreign", "no block size but 512",
         [](auto&) {
             std::string list = "\0\6"s;
             while (list.size() < 65'000)
                 list += "a\0b\0"s;
             return Replies{list};
         }},
        {"foreign", "another TFTP server sends a file, begins 66 69 6C 65",
         server([](auto&, int) { return "file"s; })},
        {"foreign", "another TFTP server sends a file",
         server([](auto&, int) { return std::string(1450, 'x'); })},
        {"stops", "answers like a camera and stops", server([](auto&, int) { return ""s; })},
        {"silent", "nobody answers", [](auto&) { return Replies{}; }},
        {"starting", "does not know its model yet", server([](auto&, int) { return word(0); })},
        {"refused", "model 105, firmware 105; the driver takes firmware from 61705 on",
         server([](auto&, int) { return word(105); })},
        {"camera", "the JPEG picture has no end",
         camera_with([](auto&, int) { return std::string(1450, 'x'); })},
        {"camera", "the JPEG picture claims a JPEG quality of 200: the driver drops it",
         camera_with([](auto&, int) { return trailer(200, 64); })},
        {"camera", "asked for H.264, it sends JPEG", camera_with([](auto&, int) { return trailer(2, 64); })},
        {"camera", "claims an area beyond the sensor",
         camera_with([](auto&, int) { return trailer(2, 40'000); })},
        {"camera", "the H.264 picture ends with 5 bytes", camera_with([](auto&, int) { return "short"s; })},
        {"camera", "a stray datagram in front of each answer",
         [plain = server(registers)](auto& d) mutable {
             Replies r = plain(d);
             r.insert(r.begin(), "stray");
             return r;
         }},
        {"camera", "14 of 100 reads lost", drops_each(7)},  // requests 2 to 101 are reads
        {"camera", "fallen silent",
         [left = 40, plain = server(registers)](auto& d) mutable {
             return --left < 0 ? Replies{} : plain(d);
         }},
    };
    std::vector<Behaviour> behaviours;
    std::vector<std::string> words{own_address(250)};  // nothing is there
    for (const auto& row : rows) {
        behaviours.push_back(row.behaviour);
        words.push_back(own_address(behaviours.size()));
    }
    const Impostors impostors(behaviours);
    ProbeResult result;
    for (const auto& asked : parse_addresses(words))
        result.addresses.push_back(asked.addresses[0]);
    const auto begin = std::chrono::steady_clock::now();
    result.findings = probe_addresses(result.addresses, {500ms, 100, false}, [](auto&) { return true; });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    EXPECT_EQ(result.findings[0].what, What::closed);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        Finding& finding = result.findings[i + 1];
        finding.remarks.push_back(finding_words(finding));
        finding.remarks.push_back(std::to_string(finding.reads.lost) + " of " +
                                  std::to_string(finding.reads.made) + " reads lost");
        finding.remarks.push_back("a stray datagram in front of each answer");
        EXPECT_STREQ(what_name(finding.what), rows[i].what) << rows[i].words;
        EXPECT_THAT(finding.remarks, Contains(HasSubstr(rows[i].words)));
    }
    std::ostringstream table;
    print_findings(table, result);
    EXPECT_THAT(table.str(),
                AllOf(Not(HasSubstr("\x1B")), HasSubstr("1 address: a machine with nothing on")));
}

class ProbeOfCameras : public CameraBench {
protected:
    /// Of the first camera, as programs get it.
    static nlohmann::json json(const ProbeWish& wish) {
        ProbeResult result;
        result.addresses = parse_addresses({own_address(1)})[0].addresses;
        result.findings = {probe_one(own_address(1), wish)};
        std::ostringstream text;
        print_findings_json(text, result);
        return nlohmann::json::parse(text.str())["addresses"][0];
    }
    /// Exit code, and standard output.
    static std::pair<int, std::string> run(const std::string& arguments) {
        FILE* const pipe = popen((PLENDIX_COMMAND " probe " + arguments + " 2>&1").c_str(), "r");
        std::string output(1 << 16, '\0');
        output.resize(fread(output.data(), 1, output.size(), pipe));
        return {WEXITSTATUS(pclose(pipe)), output};
    }
};

TEST_F(ProbeOfCameras, GivesWhatTheCameraIsAndWritesNothing) {
    Config camera = sensor(2048, 1100);
    camera.model = 204;
    camera.firmware = 61705;
    camera.mac = {2, 3, 4, 5, 6, 0xFF};
    camera.registers = {{70, 0}, {2, 61}};
    start(camera);
    fleet->set_trigger(0, true);
    nlohmann::json found = json({4s, 20, false});
    EXPECT_GT(found["round_trip_ms"].get<double>(), 0);
    EXPECT_GE(found["register_read_ms"], found["round_trip_ms"]);
    EXPECT_EQ(found["registers"]["2"], 61);
    for (const char* measured : {"round_trip_ms", "register_read_ms", "registers", "words"})
        found.erase(measured);
    const nlohmann::json most{{"width", 2048}, {"height", 1088}, {"frames_per_second", 15}};
    const nlohmann::json expected{{"address", own_address(1)},
                                  {"found", "camera"},
                                  {"system_error", nullptr},
                                  {"answer", nullptr},
                                  {"model", 204},
                                  {"firmware", 61705},
                                  {"mac", "02-03-04-05-06-FF"},
                                  {"sensor_pixels", {{"width", 2048}, {"height", 1100}}},
                                  {"has_jpeg", true},
                                  {"has_h264", true},
                                  {"own_codec", "h264"},
                                  {"jpeg_most", most},
                                  {"h264_most", most},
                                  {"motion_zones", {{"columns", 8}, {"rows", 4}, {"edge_pixels", 256}}},
                                  {"trigger_level", 1},
                                  {"register_reads", {{"made", 20}, {"lost", 0}, {"loss_percent", 0.0}}},
                                  {"remarks", nlohmann::json::array()}};
    EXPECT_EQ(found, expected);
    // Each question once, and none of them changes anything.
    EXPECT_EQ(fleet->counters(0).requests, 2 + 10 + 2 + 1 + 20U);
    EXPECT_EQ(fleet->counters(0).register_writes, 0U);

    client.write(25, 32);  // the register tells of the relay until the input is sampled
    EXPECT_EQ(json({4s, 0, false})["trigger_level"], nullptr);
    EXPECT_EQ(json({4s, 0, true})["trigger_level"], 1);
    EXPECT_EQ(fleet->counters(0).register_writes, 2U);

    // What comes from others, or twice, or means nothing, is not taken for an answer.
    start(camera, 1, {"", 0, 1, 0, 0ms, 1, parse_faults("foreign=100%,garbage=100%,duplicate=100%")});
    found = json({4s, 50, false});
    EXPECT_EQ(found["register_reads"]["made"], 50);
    EXPECT_EQ(found["register_reads"]["lost"], 0);
    EXPECT_EQ(found["h264_most"], most);
}

TEST_F(ProbeOfCameras, SearchesANetworkInTime) {
    start({}, 3);
    const std::string network = own_address(0) + "/24", camera = own_address(2), nobody = own_address(77);
    const auto begin = std::chrono::steady_clock::now();
    const auto [code, output] = run(network + " --json");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(code, exit_done);
    const auto document = nlohmann::json::parse(output);
    EXPECT_EQ(document["counts"], (nlohmann::json{{"camera", 3}, {"closed", 251}}));
    EXPECT_EQ(document["addresses"].size(), 3U);
    const struct {
        std::string arguments;
        int code;
        std::string output;
    } rows[] = {
        {network + " " + camera, exit_done, "251 addresses: a machine with nothing"},
        {network + " " + nobody, exit_failed, nobody + "  a machine with nothing"},
        {own_address(4) + "-250", exit_failed, "247 addresses: a machine with nothing"},
        {own_address(4) + "-5 --all", exit_failed, own_address(5) + "  a machine with nothing"},
        {"127.255.255.255", exit_failed, "a broadcast address"},
        {"--check 0.0.0.0", exit_usage, "which no machine has"},
        {"10.0.0.0/15", exit_usage, "131072 addresses"},
        {camera + " --reads 10001", exit_usage, "--reads 10001 is not from 0 to 10000"},
        {camera + " --timeout 0.2s", exit_usage, "is not from 0.3s to 60s"},
    };
    for (const auto& row : rows) {
        const auto [exit, text] = run(row.arguments);
        EXPECT_EQ(exit, row.code) << row.arguments;
        EXPECT_THAT(text, HasSubstr(row.output));
    }
}

TEST(ProbeAddresses, AreThoseOfARange) {
    const auto ends = [](const std::string& word) {
        const auto addresses = parse_addresses({word})[0].addresses;
        return address_text(addresses.front()) + ' ' + address_text(addresses.back()) + ' ' +
               std::to_string(addresses.size());
    };
    EXPECT_EQ(ends("10.1.2.77/24"), "10.1.2.1 10.1.2.254 254");
    EXPECT_EQ(ends("10.1.0.0/16"), "10.1.0.1 10.1.255.254 65534");
    EXPECT_EQ(ends("10.1.2.6/31"), "10.1.2.6 10.1.2.7 2");
    EXPECT_EQ(ends("223.255.255.255/32"), "223.255.255.255 223.255.255.255 1");
    EXPECT_EQ(ends("10.1.2.250-10.1.3.5"), "10.1.2.250 10.1.3.5 12");
    EXPECT_EQ(ends("10.1.2.9-12"), "10.1.2.9 10.1.2.12 4");
    for (const char* wrong : {"gate", "10.0.0.0/33", "10.0.0.0/", "10.0.0.9-8", "10.0.0.1-256",
                              "0.0.0.0-255.255.255.255", "10.0.0.1-", "0.0.0.0", "0.255.255.255-1.0.0.1",
                              "223.255.255.255-224.0.0.1", "239.1.2.3", "255.255.255.255", "240.0.0.0/24"})
        EXPECT_THROW(parse_addresses({wrong}), UsageError) << wrong;
    EXPECT_THROW(parse_addresses({"10.0.0.0/16", "10.1.0.0/29"}), UsageError);
}

TEST(ProbeRules, AreThoseOfTheDriver) {
    for (const int width : {16, 63, 64, 320, 640, 1279, 1280, 1599, 1600, 1919, 1920, 2047, 2048, 2559, 2560,
                            2591, 2592, 8192}) {
        for (const int height :
             {16, 31, 32, 240, 1023, 1024, 1199, 1200, 1535, 1536, 1599, 1600, 1943, 1944, 8192}) {
            CRectangle sensor;
            sensor.x0 = sensor.y0 = 0;
            sensor.x1 = static_cast<std::uint16_t>(width);
            sensor.y1 = static_cast<std::uint16_t>(height);
            CInput input(1, 0);
            input.Init(sensor, 0);
            const PictureSize largest = largest_picture({width, height});
            EXPECT_EQ(highest_rate({width, height}), sensor.Maximum()) << width << 'x' << height;
            EXPECT_EQ(input.m_Active.IsValid(), !largest.empty());
            if (largest.empty()) continue;
            EXPECT_EQ(input.m_Active.Width(), largest.width);
            EXPECT_EQ(input.m_Active.Height(), largest.height);
        }
    }
}

}  // namespace
}  // namespace plendix::camera::test
