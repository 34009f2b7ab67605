// Lost pictures by cause: transfers written down datagram by datagram, and captures of simulated faults.
#include <fcntl.h>

#include <csignal>
#include <sstream>

#include "field/inspector.h"
#include "host/session.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/folder.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;

/// "2 whole, 1 never sent"
std::string sum_of(const LinkCounts& counts) {
    std::string text;
    const auto add = [&](std::uint64_t count, const std::string& what) {
        if (count > 0) text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + what;
    };
    add(counts.whole, "whole");
    for (std::size_t i = 0; i < losses; ++i)
        add(counts.lost[i], loss_name(static_cast<Loss>(i)));
    add(counts.unknown, "unknown");
    return text;
}

/// Plays words, a datagram each, a millisecond apart. The client: K and P ask for a picture with and
/// without a key frame, G and W for registers, A to the stranger; a3 acknowledges, E is an error, N is
/// another port. The camera: O and O512 grant, d3 and z3 are blocks, the latter filled up with zeros, t4 is
/// a trailer, b4 one of no size, s3 a short block, x and y two bytes of camera and stranger, ~ a datagram
/// that does not come. 10s waits.
class Play {
public:
    explicit Play(bool counted) : counted_(counted) {}

    std::string run(const std::string& words) {
        std::istringstream stream(words);
        for (std::string word; stream >> word;)
            play(word[0], std::atoi(word.c_str() + 1), word);
        return sum_of(inspector_.finish().pairs.at(0).counts);
    }

private:
    void play(char kind, int number, const std::string& word) {
        const std::string block{static_cast<char>(number >> 8), static_cast<char>(number)};
        const std::string data = std::string("\0\3", 2) + block;
        const std::string place("\4\0\0\0\0\0\0\100\0\40\0\0\1", 13), none("\4\0\0\0\0\0\0\0\0\0\0\0\1", 13);
        if (word.back() == 's') time_ns_ += std::stoll(word) * 1'000'000'000;
        if (kind == 'N') ++client_.port;
        if (kind == '~') ++id_;
        if (kind == 'K' || kind == 'P')
            ask(camera_, std::string("h264?x1=64;y1=32;iframe=") + (kind == 'K' ? "1;" : "0;") + "ssn=1;");
        if (kind == 'G') ask(camera_, "getreg?page=3;reg=122;");
        if (kind == 'W') ask(camera_, "setreg?page=3;reg=111;val=7;");
        if (kind == 'A') ask(stranger_, "h264?x1=64;y1=32;iframe=0;ssn=1;");
        if (kind == 'a') send(client_, camera_, std::string("\0\4", 2) + block);
        if (kind == 'E') send(client_, camera_, std::string("\0\5\0\0over", 9));
        if (kind == 'O') answer(std::string("\0\6blksize\0", 10) + (number > 0 ? "512" : "1450") + '\0');
        if (kind == 'd') answer(data + std::string(1450, 'p'));
        if (kind == 'z') answer(data + std::string(1450, '\0'));
        if (kind == 't') answer(data + std::string(80, '\0') + place);
        if (kind == 'b') answer(data + std::string(80, '\0') + none);
        if (kind == 's') answer(data + std::string(10, '\0'));
        if (kind == 'x') answer("xx");
        if (kind == 'y') send(stranger_, client_, "yy");
        if (kind == 'g') send(stranger_, client_, "garbage");
    }
    void ask(plendix::Endpoint to, const std::string& name) {
        to.port = 69;
        const link::Bytes request = link::read_request(name);
        send(client_, to, {request.begin(), request.end()});
    }
    void answer(const std::string& payload) {
        ++id_;
        send(camera_, client_, payload);
    }
    void send(const plendix::Endpoint& from, const plendix::Endpoint& to, const std::string& payload) {
        Datagram datagram;
        datagram.time_ns = time_ns_ += 1'000'000;
        datagram.from = from;
        datagram.to = to;
        datagram.payload = reinterpret_cast<const std::uint8_t*>(payload.data());
        datagram.size = datagram.original_size = payload.size();
        datagram.ip_id = id_;
        datagram.atomic = !counted_;
        inspector_.add(datagram, "");
    }

    const bool counted_;
    Inspector inspector_;
    plendix::Endpoint client_{0x0A000001, 40001}, camera_{0x0A000007, 3456}, stranger_{0x0A000063, 5};
    std::int64_t time_ns_ = 1'795'442'400'000'000'000;
    std::uint16_t id_ = 0xFFF0;
};

TEST(Inspect, TellsWhatTheDriverCouldNotHaveDelivered) {
    const std::string register_read = "G O a0 s1 a1 ", again = "10s N " + register_read;
    const std::string good = "P O a0 d1 a1 t2 a2 ", end = "12s";
    const auto interrupted = [&](const std::string& words) { return register_read + words + again + good; };
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"good", register_read + good + good, "2 whole"},
        {"no size", "P O a0 d1 a1 b2 a2 " + good, "1 whole, 1 withheld"},
        {"cut short", "P O a0 d1 a1 s2 a2 d3 " + good, "1 whole, 1 never sent"},
        {"no such block", "P O a0 d9 a9 d2 a2 t3 a3 " + good, "1 whole, 1 never sent"},
        {"no such end", "P O a0 z1 a1 t7 a7 " + good, "1 whole, 1 never sent"},
        {"end without a number", "P O a0 d1 a1 t0 a0 " + good, "1 whole, 1 never sent"},
        {"missing", "P O a0 d2 a2 t3 a3 K O a0 d1 a1 t2 a2", "1 whole, 1 lost on the way"},
        {"late", "P O a0 d1 a1 t3 a3 d2 K O a0 d1 a1 t2 a2", "1 whole, 1 lost on the way"},
        {"missed by the capture", "P O a0 d2 a2 t3 a3 " + good, "1 whole, 1 unknown"},
        {"acknowledged unseen", "P O a0 a1 t2 a2 " + good, "2 whole"},
        {"end unseen", "P O a0 d1 a1 a2 " + good, "1 whole, 1 unknown"},
        {"not taken", "P O a0 d1 d2 d3 a1 a3 t4 a4 K O a0 t1 a1", "1 whole, 1 ours late"},
        {"end not taken", interrupted("P O a0 d1 a1 t2 "), "1 whole, 1 ours late"},
        {"options not taken", interrupted("P O "), "1 whole, 1 ours late"},
        {"no next block", interrupted("P O a0 d1 a1 "), "1 whole, 1 acknowledgement lost"},
        {"no first block", interrupted("P O a0 "), "1 whole, 1 acknowledgement lost"},
        {"no answer", interrupted("P "), "1 whole, 1 lost on the way"},
        {"trailer, as others", "P O a0 d2 a2 t3 a3 K O a0 z1 a1 " + again + good,
         "1 whole, 2 lost on the way"},
        {"trailer, as others", interrupted("P O a0 d1 a1 10s N G O a0 s1 a1 P O a0 z1 a1 "),
         "1 whole, 2 acknowledgement lost"},
        {"repeated", "P O a0 d2 a2 t3 a3 K O a0 z1 a1 z1 a1 " + again + good,
         "1 whole, 1 lost on the way, 1 acknowledgement lost"},
        {"silent", "P O a0 d1 a1 10s N G 10s N G O a0 s1 a1 " + good, "1 whole, 1 stalled"},
        {"restarted", "P O a0 10s N G 10s N G O a0 s1 a1 W O a0 s1 a1 " + good, "1 whole, 1 stalled"},
        {"restarted at once", interrupted("P O a0 10s N G O a0 s1 a1 W O a0 s1 a1 " + good),
         "2 whole, 1 stalled"},
        {"too late", "P O a0 12s d1 10s N G O a0 s1 a1 " + good, "1 whole, 1 stalled"},
        {"late, but taken", "P O a0 9s d1 a1 t2 a2", "1 whole"},
        {"512", interrupted("P O512 a0 "), "1 whole, 1 refused"},
        {"no options", interrupted("P d1 "), "1 whole, 1 refused"},
        {"what was left of the one before", interrupted("P d5 "), "1 whole, 1 lost on the way"},
        {"closed", "P O a0 d1 a1 x N " + good, "1 whole, 1 never sent"},
        {"closed by a stranger", "P O a0 d1 a1 y N " + good, "1 whole, 1 disturbed"},
        {"led astray", good + "g A " + again + good, "2 whole, 1 disturbed"},
        {"went on", "P O a0 d1 a1 N " + good, "1 whole, 1 given up"},
        {"went away", "P O a0 d1 a1 " + end + " G", "1 given up"},
        {"said so", "P O a0 d1 a1 E " + good, "1 whole, 1 given up"},
        {"the capture ended", good + "P O a0 d1 a1 9s g", "1 whole, 1 unknown"},
        {"the capture ended with the next request", good + "P O a0 10s N G", "1 whole, 1 unknown"}};
    for (const auto& [name, words, expected] : cases)
        EXPECT_EQ(Play(false).run(words), expected) << name;

    // A camera that counts its datagrams: what is not counted was not sent.
    const std::string known = good + good + good + good + good + good;
    const std::tuple<const char*, std::string, const char*> counted[] = {
        {"left out", "P O a0 d2 a2 t3 a3 K", "never sent"},
        {"missing", "P O a0 ~ d2 a2 t3 a3 K", "lost on the way"},
        {"block", "P O a0 d1 a1 ~ " + again, "lost on the way"},
        {"acknowledgement", "P O a0 z1 a1 " + again, "acknowledgement lost"},
        {"option acknowledgement", "P ~ " + again, "lost on the way"},
        {"request", "P " + again, "acknowledgement lost"}};
    for (const auto& [name, words, expected] : counted)
        EXPECT_EQ(Play(true).run(known + words + " O a0 t1 a1"),
                  (words.back() == 'K' ? "7 whole, 1 " : "6 whole, 1 ") + std::string(expected))
            << name;
}

/// One camera for each fault, all in one capture; stalls take the driver's ten seconds.
TEST(Inspect, AgreesWithTheCountersOfSimulatedCameras) {
    using Kind = Incident::Kind;
    const std::tuple<const char*, std::optional<Loss>, std::optional<Kind>> faults[] = {
        {"loss 2%", Loss::lost_on_way, Kind::lost_picture},
        {"reorder 20%", Loss::lost_on_way, Kind::lost_picture},
        {"truncate 5%", Loss::never_sent, Kind::lost_picture},
        {"wrong-block 5%", Loss::never_sent, Kind::lost_picture},
        {"ack-loss 5%", Loss::ack_lost, Kind::reconnected},
        {"error 10%", Loss::refused, Kind::reconnected},
        {"no-oack 10%", Loss::refused, Kind::reconnected},
        {"oack-512 10%", Loss::refused, Kind::reconnected},
        {"silent 12s", Loss::stalled, Kind::reconnected},
        {"reboot 2s", Loss::stalled, Kind::restarted},
        {"delay 20%/11s", Loss::stalled, std::nullopt},
        {"duplicate 20%", std::nullopt, std::nullopt},
        {"garbage 20%", std::nullopt, Kind::garbage},
        {"foreign 20%", std::nullopt, std::nullopt},  // the capture is of the cameras' addresses only
        {"corrupt 20%", std::nullopt, std::nullopt},
        {"mac-change 20%", std::nullopt, Kind::other_mac},
        {"delay 20%/1100ms", std::nullopt, Kind::slow_answer}};
    const TemporaryFolder folder;
    std::vector<Config> cameras(std::size(faults), sensor(640, 480));
    std::vector<CameraSettings> settings(cameras.size());
    std::vector<std::string> capture{"plendix", "capture", "-o", "field", "--duration", "30s"};
    std::ostringstream scenario;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        cameras[i].address = own_address(i + 1);
        settings[i].number = static_cast<int>(i + 1);
        settings[i].address = cameras[i].address;
        settings[i].rate = 25;
        settings[i].codec = Codec::jpeg;
        capture.push_back(cameras[i].address);
        const std::string fault = std::get<0>(faults[i]), kind = fault.substr(0, fault.find(' '));
        scenario << "2s " << i + 1 << ' ' << fault << "\n4s " << i + 1 << ' ' << kind << " 0%\n";
    }
    const pid_t capturing = start_command(capture, open("said", O_RDWR | O_CREAT, 0600));
    const auto limit = std::chrono::steady_clock::now() + 10s;
    while (text("said").find("Ctrl-C") == std::string::npos) {
        if (waitpid(capturing, nullptr, WNOHANG) != 0)
            GTEST_SKIP() << "cannot capture here: " << text("said");
        ASSERT_LT(std::chrono::steady_clock::now(), limit);
        std::this_thread::sleep_for(10ms);
    }
    Behaviour behaviour;
    std::istringstream steps(scenario.str());
    behaviour.scenario = parse_scenario(steps, "faults", cameras.size());
    Fleet fleet(cameras, behaviour);
    fleet.start();
    Session session(PLENDIX_LIBRARY, settings);
    session.start();
    for (const auto end = Session::Clock::now() + 15500ms; Session::Clock::now() < end;)
        session.serve(100ms);
    kill(capturing, SIGINT);
    ASSERT_EQ(exit_code(capturing), 0) << text("said");
    session.stop();

    Inspector inspector;
    CaptureReader reader("field");
    for (CapturedPacket packet; reader.next(packet);)
        if (const auto datagram = datagram_of(packet)) inspector.add(*datagram, packet.comment);
    const Findings findings = inspector.finish();
    ASSERT_EQ(findings.pairs.size(), cameras.size());
    std::uint64_t all_lost = 0;
    for (const auto& pair : findings.pairs) {
        const std::size_t i = (pair.camera & 255U) - 1;
        const std::uint64_t lost = fleet.counters(i).frames_lost;
        const auto& [fault, cause, kind] = faults[i];
        const std::string said = std::string(fault) + ": " + sum_of(pair.counts);
        const auto right = pair.counts.lost.at(static_cast<std::size_t>(cause.value_or(Loss::given_up)));
        EXPECT_EQ(pair.counts.all_lost(), lost) << said;
        EXPECT_GE(right + pair.counts.either, lost) << said;
        const auto is_told = [&, kind = kind](const Incident& incident) {
            return incident.camera == pair.camera && incident.kind == kind;
        };
        const auto incidents = findings.incidents.sorted();
        const bool expected = kind == Kind::lost_picture ? lost > 0 : kind.has_value();
        EXPECT_EQ(std::any_of(incidents.begin(), incidents.end(), is_told), expected) << said;
        all_lost += lost;
        EXPECT_GT(pair.counts.whole, 0U) << said;
    }
    EXPECT_GT(all_lost, 20U);
}

}  // namespace
}  // namespace plendix::camera::test
