// Captures played again: to the driver, which has to see the same, and to clients of every kind.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "device/device.h"
#include "field/live_capture.h"
#include "field/replay_fleet.h"
#include "platform/clock.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/folder.h"
#include "support/host.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

std::uint32_t own_number(std::size_t number) {
    return *address_of(own_address(number));
}

/// What is said on the machine's own network, from construction on.
class Tap {
public:
    explicit Tap(const std::string& file) : live_("lo", {own_address(1), own_address(2)}), file_(file) {
        thread_ = std::thread([this] {
            for (bool last = false; !last; live_.wait(10ms))
                for (CapturedPacket packet; live_.next(packet);) {
                    last = last || datagram_of(packet)->to.port == last_port;
                    file_.write(packet);
                }
        });
    }
    void finish() {
        UdpSocket("0.0.0.0", 0).send(nullptr, 0, {parse_address(own_address(1)), htons(last_port)});
        thread_.join();
        EXPECT_EQ(live_.counts().missed, 0U);
        file_.finish({});
    }

private:
    static constexpr std::uint16_t last_port = 9;  // a datagram to it is the last
    LiveCapture live_;
    CaptureWriter file_;
    std::thread thread_;
};

/// The driver with two cameras, and what the host gets of it.
struct Session {
    Session() {
        for (const std::size_t i : {1U, 2U}) {
            devices.push_back(std::make_unique<CDevice>(i));
            devices.back()->m_bEnabled = true;
            devices.back()->m_sAddress = devices.back()->m_Input.m_sName = own_address(i);
        }
    }
    /// What the worker does. A transfer that gets no answer is given up before its time.
    void pass() {
        fd_set read = {}, unused = {};
        int highest = -1;
        for (const auto& device : devices) {
            const std::uint32_t now = timeGetTime();
            const bool waits = device->m_Socket != -1 && device->m_dwSendTime != 0;
            if (waits && now - device->m_dwSendTime > 700) device->m_dwSendTime = (now - 10'001) | 1;
            highest = std::max(highest, device->Set(read, unused, unused));
        }
        timeval limit = {0, 5000};
        if (highest >= 0) select(highest + 1, &read, nullptr, nullptr, &limit);
        for (const auto& device : devices)
            device->IsSet(read, unused, unused);
    }
    template <class Condition>
    void until(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + 30s;
        while (!condition() && std::chrono::steady_clock::now() < end)
            pass();
    }
    std::vector<std::string> frames(unsigned device) const {
        std::vector<std::string> frames;
        for (const RecordedEvent& event : host.frames())
            if ((event.record.SourceId >> 8 & 0xFF) == device) frames.push_back(event.data);
        return frames;
    }
    /// In which a camera is named.
    std::vector<std::string> troubles(const std::string& name) const {
        std::vector<std::string> lines = host.log_lines();
        const auto others = [&](const std::string& line) { return line.find(name) == std::string::npos; };
        lines.erase(std::remove_if(lines.begin(), lines.end(), others), lines.end());
        return lines;
    }

    RecordingHost host;
    std::vector<std::unique_ptr<CDevice>> devices;
};

TEST(Replay, GivesTheDriverTheSameFramesAndTroubles) {
    const TemporaryFolder folder;
    Behaviour behaviour;
    behaviour.max_fps = 40;
    behaviour.trigger_period = 700ms;
    behaviour.faults = parse_faults(
        "loss=0.3%,duplicate=2%,reorder=2%,delay=1%/40ms,corrupt=2%,truncate=0.2%,garbage=1%,foreign=1%,"
        "wrong-block=0.2%,ack-loss=0.05%,no-oack=0.2%,oack-512=0.1%,error=0.2%,silent=0.1%/1s,reboot=0.1%/"
        "1s");
    std::vector<Config> cameras{sensor(640, 480), sensor(640, 480)};
    cameras[0].address = own_address(1);
    cameras[0].model = 100;  // JPEG
    cameras[1].address = own_address(2);
    Session before;
    try {
        Tap tap("field");
        Fleet fleet(cameras, behaviour);
        fleet.start();
        before.until([&] { return before.frames(1).size() > 30 && before.frames(2).size() > 30; });
        before.devices.clear();
        tap.finish();
    } catch (const Failure& failure) {
        GTEST_SKIP() << failure.what();
    }
    const ReplayCapture capture("field", {});
    ReplayFleet replayed(capture, own_number(1), {});
    replayed.start();
    Session again;
    const auto whole = [&](unsigned camera) {
        return again.frames(camera).size() >= before.frames(camera).size() &&
               again.troubles(own_address(camera)).size() >= before.troubles(own_address(camera)).size();
    };
    again.until([&] { return replayed.finished() && whole(1) && whole(2); });
    replayed.stop();
    for (const unsigned camera : {1U, 2U}) {
        EXPECT_TRUE(before.frames(camera) == again.frames(camera)) << "camera " << camera;
        const auto troubles = before.troubles(own_address(camera));
        auto seen = again.troubles(own_address(camera));
        EXPECT_GE(troubles.size(), 3U);
        if (seen.size() > troubles.size()) seen.resize(troubles.size());  // it is silent by now
        EXPECT_EQ(seen, troubles);
        EXPECT_EQ(replayed.counts(camera - 1).skipped + replayed.counts(camera - 1).made_up, 0U);
    }
}

/// "K" and "p" are pictures, a key frame and none; "r1=7" a register and its answer, "r1!" one that failed.
std::vector<ReplayTransferPointer> script_of(const std::string& text) {
    std::vector<ReplayTransferPointer> transfers;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        auto transfer = std::make_shared<ReplayTransfer>();
        const bool key = word == "K", picture = key || word[0] == 'p';
        transfer->request = picture ? std::string("h264?x1=64;y1=32;ssn=1;iframe=") + (key ? "1;" : "0;")
                                    : link::register_name(word[1] - '0');
        transfer->name = link::parse_file_name(transfer->request);
        transfer->key = key;
        transfer->taken = word.back() != '!';
        if (word.size() > 3) transfer->value = std::stoi(word.substr(3));
        transfers.push_back(transfer);
    }
    return transfers;
}

/// Asks for "k2", "p2" (a picture, of stream 2), "r1": the places played, or how else it was answered.
std::string played(const std::string& captured, const std::string& asked, bool loop) {
    const auto transfers = script_of(captured);
    ReplayScript script(transfers, loop);
    std::istringstream words(asked);
    std::string all;
    for (std::string word; words >> word;) {
        const bool read = word[0] == 'r';
        const std::string name =
            read ? link::register_name(std::stoi(word.substr(1)))
                 : "h264?iframe=" + std::to_string(word[0] == 'k') + ";ssn=" + word.substr(1);
        const ReplayChoice choice = script.choose(name, true, false);
        const auto place = std::find(transfers.begin(), transfers.end(), choice.transfer);
        const bool known = place != transfers.end();
        all += known ? std::to_string(place - transfers.begin()) +
                           (choice.kind == ReplayChoice::Kind::repeated ? "r" : "")
               : choice.transfer ? "=" + std::to_string(choice.transfer->value)
                                 : "-";
        all += ' ';
    }
    return all;
}

TEST(ReplayScript, KeepsTheOrderWhateverTheClientsClockSays) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"r1=7 K p r1=8 p K", "r1 k1 p1 p1 r1 k1 k1", "0 1 2 4 3 5 - "},
        {"K p p K p", "k1 k1 p1 k1 p1", "0 1 2 3 4 "},  // asked by time, and early
        {"p p K p", "k1 p1", "2 3 "},                   // began in a stream
        {"K p p K p", "k1 p1 k2 p2", "0 1 3 4 "},       // another stream, and not in the capture
        {"p p", "k1 p1 k2", "0 1 - "},                  // no key frame to go to
        {"K r1=7", "r1 r1 k1", "1 1r 0 "},
        {"K p", "r1 r2 k1 r4 r25 r72 r73", "=0 =99 0 =0 =0 =64 =32 "},
        // A failure comes behind its picture, also when asked for earlier or not at all.
        {"r1=7 K r1=7 p r1! K p", "r1 k1 r1 r1 p1 r1 k2 p2", "0 1 2 2r 3 4 5 6 "},
        {"K p r1! r2=9 K", "k1 p1 p1 r2 k2", "0 1 2 3 4 "},
        {"r1! r1! r1=7 K", "r1 r1 r1 k1", "0 1 2 3 "},
        {"K r2=5 r1! r2=6 K", "k1 k1 r2 r2 k2", "0 2 3 3r 4 "},
        {"K r2=5 r1! r2=6 K", "k1 r2 r2 k1 r2 k2", "0 1 1r 2 3 4 "}};
    for (const auto& [captured, asked, expected] : cases)
        EXPECT_EQ(played(captured, asked, false), expected) << captured << " asked for " << asked;
    EXPECT_EQ(played("p K r1! p", "k1 p1 p1 p1 p1 p1", true), "1 2 3 1 2 3 ");
}

/// A capture made by hand; a client on port 40001 and a camera, 10.0.0.7.
class Captured : public CameraBench {
protected:
    void add(const plendix::Endpoint& from, const plendix::Endpoint& to, const link::Bytes& payload,
             std::size_t kept = 9999) {
        const auto put = [](CapturedPacket& packet, std::size_t value, int bytes) {
            while (bytes-- > 0)
                packet.data.push_back(static_cast<std::uint8_t>(value >> 8 * bytes));
        };
        CapturedPacket packet;
        packet.link_type = link_raw_ip;
        packet.time_ns = time_ms_ += 1;
        packet.time_ns *= 1'000'000;
        put(packet, 0x4500, 2), put(packet, payload.size() + 28, 2), put(packet, 0, 4),
            put(packet, 0x40110000, 4);
        put(packet, from.address, 4), put(packet, to.address, 4), put(packet, from.port, 2),
            put(packet, to.port, 2);
        put(packet, payload.size() + 8, 2), put(packet, 0, 2);
        packet.data.insert(packet.data.end(), payload.begin(), payload.end());
        packet.original_size = packet.data.size();
        packet.data.resize(std::min(packet.data.size(), 28 + kept));
        file_.write(packet);
    }
    void ask(const std::string& name, std::uint32_t asking = 1) {
        add({asking, 40001}, {camera_, 69}, link::read_request(name, 512));
    }
    void acknowledge(std::uint16_t block) { add({1, 40001}, {camera_, 3456}, link::acknowledgement(block)); }
    void data(std::uint8_t block, std::size_t size, std::size_t kept = 9999) {
        link::Bytes packet(4 + size, block);
        packet[0] = packet[2] = 0, packet[1] = 3, packet[3] = block;
        add({camera_, 3456}, {1, 40001}, packet, kept);
    }
    void register_value(std::uint8_t value) {
        const std::string name = link::register_name(7);
        ask(name);
        add({camera_, 3456}, {1, 40001}, {0, 3, 0, 1, 0, value});
        acknowledge(1);
    }
    void play(const ReplayWishes& wishes = {}) {
        file_.finish({});
        capture_ = std::make_unique<ReplayCapture>("field", wishes);
        replay_ = std::make_unique<ReplayFleet>(*capture_, own_number(1), ReplayOptions{},
                                                [this](const std::string& line) { told_ += line + '\n'; });
        replay_->start();
    }

    TemporaryFolder folder_;
    CaptureWriter file_{"field"};
    const std::uint32_t camera_ = 0x0A000007;
    std::int64_t time_ms_ = 0;
    std::string told_;
    std::unique_ptr<ReplayCapture> capture_;
    std::unique_ptr<ReplayFleet> replay_;
};

TEST_F(Captured, WithGapsLeavesNoClientWaiting) {
    register_value(5);
    ask("image?");
    data(1, 512);
    acknowledge(1);
    data(2, 512);  // what answered it is not in the capture, nor is block 4
    data(3, 512);
    acknowledge(3);
    acknowledge(4);
    data(5, 90);
    acknowledge(5);
    register_value(6);
    ask("image?");
    data(1, 90, 10);
    acknowledge(1);
    ask("image?", 2);  // of another client, and nobody answers
    add({1, 40001}, {8, 69}, link::read_request("image?", 512));
    play();
    ASSERT_EQ(capture_->cameras().size(), 1U);
    EXPECT_EQ(capture_->cameras()[0].cut, 1U);
    EXPECT_EQ(capture_->cameras()[0].others.at(2), 1U);

    EXPECT_EQ(client.read(7), 5);
    EXPECT_EQ(client.read(122), 100) << "made up";
    client.request(read_request("image?", 512));
    Bytes block;
    for (const int number : {1, 2, 3, 5}) {
        EXPECT_EQ(client.receive(block), std::make_pair(3, number));
        EXPECT_EQ(block, Bytes(number == 5 ? 90 : 512, static_cast<std::uint8_t>(number)));
        for (const int wrong : {number, number, 0, 4711})
            client.acknowledge(wrong);
    }
    client.acknowledge(1, 77);
    EXPECT_EQ(client.read(7), 6);
    EXPECT_EQ(client.read(7), 6);
    EXPECT_EQ(client.fetch("nothing?").error, 1);
    for (int i = 0; i < 100; ++i) {  // clients that go away
        TftpClient other(own_address(1));
        other.request(read_request("nothing?", 512));
        other.request(Bytes(static_cast<std::size_t>(i), 0xFF));
    }
    EXPECT_FALSE(replay_->finished());
    const Reply last = client.fetch("image?", 512);
    EXPECT_EQ(last.trailer, [] {
        Bytes bytes(90, 0);
        std::fill_n(bytes.begin(), 6, 1);
        return bytes;
    }());
    while (!replay_->finished())
        std::this_thread::yield();
    client.request(read_request("image?", 512));
    EXPECT_FALSE(client.waits(100)) << "is silent at the end";
    replay_->stop();
    EXPECT_EQ(replay_->counts(0).after_end, 1U);
    EXPECT_THAT(told_, HasSubstr("'nothing?' is not in the capture"));
}

TEST_F(Captured, WithoutPicturesIsOverBehindTheLastRequest) {
    register_value(5);
    play();
    EXPECT_FALSE(replay_->finished());
    const auto begin = ReplayClock::now();
    EXPECT_EQ(client.read(7), 5);
    replay_->stop();
    EXPECT_GE(replay_->finished().value_or(ReplayClock::time_point{}), begin);
}

TEST_F(Captured, WithoutCamerasIsRefused) {
    ask("image?");
    file_.finish({});
    for (const auto& [wishes, words] : {std::pair{ReplayWishes{}, "nobody answers"},
                                        {ReplayWishes{{8}, {}}, "no camera 0.0.0.8"},
                                        {ReplayWishes{{}, 2}, "that is of 0.0.0.2"}}) {
        const auto open = [wish = wishes] { ReplayCapture("field", wish); };
        EXPECT_THAT(open, testing::ThrowsMessage<Failure>(HasSubstr(words)));
    }
    for (const auto& [address, code, words] : {std::tuple{"10.0.0.9", 2, "127.0.0.0/8"},
                                               {"224.0.0.1", 2, "127.0.0.0/8"},
                                               {"127.0.0.9", 1, "nobody"}}) {
        const Descriptor said(open("said", O_RDWR | O_CREAT | O_TRUNC, 0600));
        EXPECT_EQ(exit_code(start_command({"plendix", "replay", "field", "--address", address}, said.get())),
                  code);
        EXPECT_THAT(text("said"), HasSubstr(words));
    }
}

}  // namespace
}  // namespace plendix::camera::test
