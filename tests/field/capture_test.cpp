// Capture files of every kind, and captures of simulated cameras on this machine's own network.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <numeric>

#include "field/capture_ring.h"
#include "field/drop_note.h"
#include "field/picture_cutter.h"
#include "field/second_sight.h"
#include "field/silence_watch.h"
#include "link/packet.h"
#include "support/camera_bench.h"
#include "support/command.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// Bytes in a file's order.
struct Text {
    bool big = false;
    std::string bytes{};
    Text& add(std::uint64_t value, int size) {
        for (int i = 0; i < size; ++i)
            bytes += static_cast<char>(value >> 8 * (big ? size - 1 - i : i));
        return *this;
    }
    Text& u16(std::uint64_t value) { return add(value, 2); }
    Text& u32(std::uint64_t value) { return add(value, 4); }
    Text& text(const std::string& more) {
        bytes += more + std::string((4 - more.size() % 4) % 4, '\0');
        return *this;
    }
    Text& block(std::uint32_t type, const Text& body) {
        const std::uint64_t size = body.bytes.size() + 12;
        u32(type).u32(size).bytes += body.bytes;
        return u32(size);
    }
    Text& section() { return block(0x0A0D0D0A, Text{big}.u32(0x1A2B3C4D).u16(1).u16(0).u32(~0U).u32(~0U)); }
    Text& interface(int link, const std::string& resolution, std::int64_t offset = 0,
                    std::uint32_t snap = 0) {
        Text body{big};
        body.u16(static_cast<unsigned>(link)).u16(0).u32(snap);
        if (!resolution.empty()) body.u16(9).u16(1).text(resolution);
        if (offset != 0) body.u16(14).u16(8).add(static_cast<std::uint64_t>(offset), 8);
        return block(1, body.u32(0));
    }
    Text& packet(std::uint64_t interface, std::uint64_t time, const std::string& data, std::uint64_t size) {
        return block(6, Text{big}.u32(interface).u32(time >> 32).u32(time).u32(size).u32(9000).text(data));
    }
};

Text pcap(bool big, std::uint32_t magic) {
    return Text{big}.u32(magic).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(101);
}

/// "LINK@TIME:DATA/ORIGINAL COMMENT;" for each packet, and how it ended.
std::string read(const std::string& file) {
    std::size_t at = 0;
    CaptureReader reader(
        [&](std::uint8_t* to, std::size_t) {
            if (at == file.size()) return std::size_t{0};
            *to = static_cast<std::uint8_t>(file[at++]);
            return std::size_t{1};
        },
        "file");
    std::string all;
    for (CapturedPacket packet; reader.next(packet);)
        all += std::to_string(packet.link_type) + '@' + std::to_string(packet.time_ns) + ':' +
               std::string(packet.data.begin(), packet.data.end()) + '/' +
               std::to_string(packet.original_size) + packet.comment + ';';
    if (reader.missed()) all += "missed " + std::to_string(*reader.missed());
    return all + (reader.cut_short() ? "cut short" : reader.damage());
}

TEST(CaptureFile, IsReadInEitherOrderAndEndsWithAWordWhereItIsDamaged) {
    const std::string good = "1@1000000002:abcde/9000;";
    for (const bool big : {false, true}) {
        const Text start = Text{big}.section(), eth = Text(start).interface(1, "\x09");
        const auto at = [&](const std::string& resolution, std::uint64_t time, std::int64_t offset = 0) {
            return Text(start).interface(1, resolution, offset).packet(0, time, "abcde", 5);
        };
        const auto missed = [&](Text file, unsigned interface, unsigned count) {
            return file.block(5, Text{big}.u32(interface).u32(0).u32(0).u16(5).u16(8).add(count, 8));
        };
        const Text whole = at("\x09", 1'000'000'002);
        const std::pair<Text, std::string> cases[] = {
            {whole, good},
            {at("", 3), "1@3000:abcde/9000;"},
            {at("\x03", 5, -1), "1@-995000000:abcde/9000;"},
            {at("\x0C", 5'000'000), "1@5000:abcde/9000;"},
            {at("\x8A", 1536), "1@1500000000:abcde/9000;"},
            {at("\xC8", ~0ULL), "1@3906249:abcde/9000;"},
            {at(std::string(1, '\0'), ~0ULL), "1@9223372035000000000:abcde/9000;"},
            {Text(eth).interface(276, "\x06").packet(1, 7, "abcde", 5), "276@7000:abcde/9000;"},
            {Text(start).interface(1, "", 0, 3).block(3, Text{big}.u32(9000).text("abc")), "1@0:abc/9000;"},
            {Text(eth).block(2, Text{big}.u16(0).u16(7).u32(0).u32(9).u32(2).u32(4).text("xy")), "1@9:xy/4;"},
            {Text(eth).block(
                 6, Text{big}.u32(0).u32(0).u32(1).u32(0).u32(0).u16(1).u16(2).text("no").u16(1).u16(2).text(
                        "te")),
             "1@1:/0no\nte;"},
            {Text(eth).block(77, Text{big}.u32(1)).packet(0, 1'000'000'002, "abcde", 5), good},
            {missed(eth, 0, 4), "missed 4"},
            {missed(missed(missed(Text(eth).interface(1, ""), 0, 4), 1, 3), 0, 6), "missed 9"},
            {missed(missed(eth, 0, 4).section().interface(1, ""), 0, 6), "missed 10"},
            {pcap(big, 0xA1B2C3D4).u32(1).u32(2).u32(1).u32(60).add('a', 1), "101@1000002000:a/60;"},
            {pcap(big, 0xA1B23C4D).u32(1).u32(2).u32(1).u32(60).add('a', 1), "101@1000000002:a/60;"},
            {pcap(big, 0xA1B2C3D4).u32(1).u32(2).u32(~0U).u32(60),
             "damaged at byte 24: a packet of 4294967295 bytes"},
            {pcap(big, 0xA1B2C3D4).u32(1).u32(2).u32(200'000).u32(60), "cut short"},
            {Text(eth).packet(3, 1, "", 0), "damaged at byte 60: interface 3 of 1"},
            {Text(eth).packet(0, 1, "abc", 60), "damaged at byte 60: a packet of 60 bytes in a block of 36"},
            {Text(eth).u32(6).u32(~0U), "damaged at byte 60: a block of 4294967295 bytes"},
            {Text(eth).u32(6).u32(16).u32(0).u32(20), "damaged at byte 60: a block of 16 or 20 bytes"},
            {Text(eth).u32(6).u32(16U << 20U), "cut short"},
            {Text(eth).block(6, Text{big}.u32(0)), "damaged at byte 60: a packet block of 4 bytes"},
            {Text{big}.u32(0x0A0D0D0A).u32(28).u32(1), "damaged at byte 0: a section without byte order"}};
        for (const auto& [file, expected] : cases)
            EXPECT_EQ(read(file.bytes), expected);
        EXPECT_EQ(read(whole.bytes + Text{!big}.section().interface(1, "\x06").packet(0, 1, "f", 1).bytes),
                  good + "1@1000:f/9000;");
        for (std::size_t size = 5; size < whole.bytes.size(); ++size) {
            const std::string words = read(whole.bytes.substr(0, size));
            EXPECT_EQ(words, size == start.bytes.size() || size == 60 ? "" : "cut short") << size;
        }
    }
    for (const auto& [file, expected] :
         {std::pair{"", "is empty"}, {"\n", "less than four"}, {"GIF89", "neither"}}) {
        const auto open = [text = std::string(file)] { read(text); };
        EXPECT_THAT(open, testing::ThrowsMessage<Failure>(HasSubstr(expected)));
    }
}

CapturedPacket udp(const plendix::Endpoint& from, const plendix::Endpoint& to, const std::string& payload,
                   unsigned fragment = 0, unsigned protocol = 17, std::uint32_t interface = 1) {
    CapturedPacket packet;
    Text text{true};
    text.u16(0x0800).u16(0).u32(interface).u32(0).u32(0).u32(0).u16(0x4500).u16(payload.size() + 28).u16(7);
    text.u16(fragment).u16(64 << 8 | protocol).u16(0).u32(from.address).u32(to.address);
    text.u16(from.port).u16(to.port).u16(payload.size() + 8).u16(0).bytes += payload;
    packet.link_type = link_cooked2;
    packet.time_ns = 1'000'000'000;
    packet.data.assign(text.bytes.begin(), text.bytes.end());
    packet.original_size = packet.data.size();
    return packet;
}

TEST(PictureCutter, LeavesNothingThatMayBeSeen) {
    const plendix::Endpoint camera{0x0A000007, 69}, port{0x0A000007, 3456}, client{0x0A000001, 40001};
    const auto request = [](const std::string& name) {
        const auto packet = link::read_request(name);
        return std::string(packet.begin(), packet.end());
    };
    const auto block = [](std::size_t size) { return std::string("\0\3\0\1", 4) + std::string(size, 'p'); };
    const std::string options("\0\6blksize\0001450\0", 15), refusal("\0\5\0\0", 4);
    PictureCutter cutter;
    const auto kept = [&](CapturedPacket packet) {
        const std::size_t before = packet.original_size;
        cutter.cut(packet);
        EXPECT_EQ(packet.original_size, before);
        return static_cast<int>(packet.data.size()) - 48;  // behind the UDP header
    };
    EXPECT_EQ(kept(udp(port, client, block(90))), 4) << "the request was not seen";
    EXPECT_EQ(kept(udp(port, client, options)) + kept(udp(port, client, refusal + "no")), 8) << "the same";
    EXPECT_EQ(kept(udp(client, camera, request("image?quality=8;"))), 41);
    EXPECT_EQ(kept(udp(port, client, refusal + "no")) + kept(udp(client, port, refusal + "why")), 13);
    for (const std::string& words : {options, refusal})
        EXPECT_EQ(kept(udp(port, client, words + std::string(509, 'p'))), 4) << "too long for words";
    EXPECT_EQ(kept(udp(port, client, block(90))), 4) << "the block size was not seen";
    EXPECT_EQ(kept(udp(port, client, options)), 15);
    EXPECT_EQ(kept(udp(port, client, block(1450))), 4);
    EXPECT_EQ(kept(udp(port, client, block(1000))), 4) << "too long for a trailer";
    EXPECT_EQ(kept(udp(port, client, block(93))), 97);
    EXPECT_EQ(kept(udp(client, port, std::string("\0\4\0\1", 4) + "smuggled")), 4);
    EXPECT_EQ(kept(udp(port, client, "no TFTP at all")), 0);
    EXPECT_EQ(kept(udp(port, client, block(93), 0x2000)), 97) << "a first fragment";
    EXPECT_EQ(kept(udp(port, client, block(93), 0x0001)), -8) << "a later one";
    EXPECT_EQ(kept(udp(client, port, std::string(520, 'q'), 0, 1)), 32)
        << "ICMP, quoting up to the block's number";
    EXPECT_EQ(kept(udp(client, camera, request("getreg?page=3;reg=25;"))), 46);
    EXPECT_EQ(kept(udp(port, client, block(2))), 6);
    EXPECT_EQ(kept(udp(port, client, block(1450))), 4) << "of the picture before, late";
    EXPECT_EQ(kept(udp(client, camera, request("anything"))), 33);
    EXPECT_EQ(kept(udp(port, client, block(2))), 4) << "kept where it is known what it is";
}

TEST(Watches, TellSilenceAndWhatIsSeenTwice) {
    SilenceWatch watch;
    SilenceWatch::Time now{};
    watch.asked(1, now);
    EXPECT_FALSE(watch.silent(now + 1h)) << "was never alive";
    watch.heard(1, now);
    EXPECT_FALSE(watch.silent(now += 1h)) << "was not asked";
    watch.asked(1, now);
    watch.asked(1, now + 9s);
    EXPECT_FALSE(watch.silent(now + 9s));
    EXPECT_EQ(watch.silent(now + 10s), 1U);
    watch.heard(1, now + 11s);
    EXPECT_FALSE(watch.silent(now + 1h));

    SecondSight sight;
    const auto seen = [&](const std::string& payload, std::uint32_t interface) {
        const CapturedPacket packet = udp({7, 69}, {1, 40001}, payload, 0, 17, interface);
        return sight.seen(packet, *datagram_of(packet));
    };
    EXPECT_FALSE(seen("1", 2) || seen("1", 2)) << "sent twice";
    EXPECT_TRUE(seen("1", 3) && !seen("2", 3) && seen("2", 2));

    const auto notes =
        drop_notes("a word\n" + drop_note({{0, 40001}, 5, 2}) + "\nplendix: socket x dropped 1 (+1)");
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_EQ(to_text(notes[0].socket) + ' ' + std::to_string(notes[0].total + notes[0].added),
              "0.0.0.0:40001 7");
}

std::vector<CapturedPacket> packets_of(const fs::path& file) {
    std::vector<CapturedPacket> packets(1);
    CaptureReader reader(file);
    while (reader.next(packets.back()))
        packets.emplace_back();
    packets.pop_back();
    EXPECT_EQ(reader.damage(), "");
    return packets;
}

TEST(CaptureRing, KeepsTheLastMinutesWithinItsBoundAndIsReadByOthers) {
    const TemporaryFolder folder;
    const auto fill = [](const char* file, std::uint64_t bytes) {
        CaptureRing ring(file, {"any", "udp", "no pictures"}, {60s, bytes});
        CaptureOutput::Time now{};
        for (int second = 0; second < 600; ++second) {
            CapturedPacket packet = udp({7, 69}, {1, 40001}, std::to_string(second));
            packet.time_ns = second * 1'000'000'000LL + 5;
            if (second == 599) packet.comment = "the last";
            ring.write(packet, now += 1s);
            ring.flush(now);
        }
        const auto kept = ring.kept();
        EXPECT_EQ(kept.last_ns, 599'000'000'005);
        ring.finish({});
        return kept;
    };
    const auto kept = fill("time", 1U << 30U);
    const auto packets = packets_of("time");
    EXPECT_TRUE(packets.size() >= 60 && packets.size() <= 64 && packets.size() == kept.packets)
        << packets.size();
    EXPECT_EQ(packets.front().time_ns, kept.first_ns);
    EXPECT_EQ(packets.back().comment, "the last");
    EXPECT_FALSE(kept.short_of_room || fs::exists("time.ring"));
    EXPECT_LT(fill("bytes", 3000).bytes, 3000U);
    EXPECT_THROW(CaptureRing("time", {}, {60s, 1U << 30U}), Failure);
    // tcpdump gives up root's rights, which is not possible where there are no other users.
    for (const auto& [precision, rest] : {std::pair{"--micro", 0}, {"--nano", 5}}) {
        const std::string words = std::string("tcpdump ") + precision + " -r time -w - >again 2>log";
        ASSERT_EQ(std::system((words + " || unshare -U --map-user=1 " + words).c_str()), 0);
        const auto again = packets_of("again");
        ASSERT_EQ(again.size(), packets.size());
        for (std::size_t i = 0; i < again.size(); ++i)
            EXPECT_TRUE(again[i].data == packets[i].data && again[i].link_type == link_cooked2 &&
                        again[i].time_ns == packets[i].time_ns - 5 + rest);
    }
}

/// As `plendix capture -o - >>FILE` on a disk that is full.
TEST(CaptureWriter, TakesNothingBackOfAFileThatWasThere) {
    const TemporaryFolder folder;
    const std::string before(5000, 'b');
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const auto on_full_file = std::signal(SIGXFSZ, SIG_IGN);
    const int output = dup(STDOUT_FILENO);
    for (const int flags : {O_APPEND, 0}) {
        std::ofstream("there") << before;
        const Descriptor there(open("there", O_WRONLY | flags));
        lseek(there.get(), 0, flags == 0 ? SEEK_END : SEEK_SET);
        std::fflush(stdout);
        dup2(there.get(), STDOUT_FILENO);
        std::uint64_t whole = 0;
        {
            CaptureWriter writer("-");
            writer.flush();
            whole = writer.size();
            writer.write(udp({7, 69}, {1, 40001}, std::string(2000, 'p')));
            const rlimit full{before.size() + whole + 1000, limit.rlim_max};
            setrlimit(RLIMIT_FSIZE, &full);
            EXPECT_THROW(writer.flush(), Failure);
        }
        setrlimit(RLIMIT_FSIZE, &limit);
        dup2(output, STDOUT_FILENO);
        EXPECT_EQ(fs::file_size("there"), before.size() + whole);
        EXPECT_EQ(text("there").substr(0, before.size()), before);
    }
    ::close(output);
    std::signal(SIGXFSZ, on_full_file);
}

/// The built command, with its standard error.
class Command {
public:
    explicit Command(std::vector<std::string> words) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        words.insert(words.begin(), {"plendix", "capture"});
        std::vector<char*> arguments;
        for (auto& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions{};
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&child_, PLENDIX_COMMAND, &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        error_ = ends[0];
    }
    ~Command() {
        if (child_ > 0) end(SIGKILL);
        ::close(error_);
    }
    /// Reads until it says this, or ends.
    bool says(const std::string& what) {
        char part[512];
        while (said.find(what) == std::string::npos) {
            const auto size = ::read(error_, part, sizeof part);
            if (size <= 0) return false;
            said.append(part, static_cast<std::size_t>(size));
        }
        return true;
    }
    /// The exit code, or minus the signal.
    int end(int signal = 0) {
        if (signal != 0) kill(child_, signal);
        says("what it never says");
        int status = -1;
        waitpid(std::exchange(child_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    std::string said;

private:
    pid_t child_ = -1;
    int error_ = -1;
};

class Capture : public CameraBench {
protected:
    void SetUp() override {
        if (!PLENDIX_CAPTURE) GTEST_SKIP() << "built without libpcap";
        Command command({own_address(1), "-o", "try", "--duration", "1ms"});
        command.end();
        if (command.said.find("no right to capture") != std::string::npos)
            GTEST_SKIP() << "capturing is not permitted here";
    }
    template <class Condition>
    static bool await(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (std::chrono::steady_clock::now() < end) {
            if (condition()) return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }
    TemporaryFolder folder_;
};

/// What came from the camera, as far as it is there; counts all datagrams.
std::vector<std::string> blocks_of(const std::vector<CapturedPacket>& packets, std::size_t& datagrams) {
    std::vector<std::string> blocks;
    for (const CapturedPacket& packet : packets) {
        const auto datagram = datagram_of(packet);
        if (!datagram) continue;
        ++datagrams;
        const std::string bytes(datagram->payload, datagram->payload + datagram->size);
        if (bytes.substr(0, 2) == std::string("\0\3", 2)) blocks.push_back(bytes.substr(4));
    }
    return blocks;
}

TEST_F(Capture, KeepsWhatWasSaidWholeWithoutPicturesInARingAndWhenKilled) {
    start(sensor(320, 240));
    std::vector<std::string> all{"-o", "whole"};
    for (std::size_t number = 1; number < 255; ++number)
        all.push_back(own_address(number));
    Command whole(all), cut({own_address(1), "-o", "cut", "--no-pictures"}),
        ring({own_address(1), "-o", "ring", "--ring", "1h"}), killed({own_address(1), "-o", "killed"});
    for (Command* each : {&whole, &cut, &ring, &killed})
        ASSERT_TRUE(each->says("capturing")) << each->said;

    std::size_t expected = 0;
    std::string said, pictures;
    const auto fetch = [&](const std::string& name) {
        const Reply reply = client.fetch(name);
        ASSERT_TRUE(reply.complete);
        expected += 3 + 2 * reply.blocks;
        said.append(reply.whole.begin(), reply.whole.end());
        pictures.append(reply.trailer.begin(), reply.trailer.end());
    };
    for (int i = 0; i < 20; ++i) {
        fetch("getreg?page=3;reg=122;");
        fetch("image?res=full;x0=0;y0=0;x1=320;y1=240;quality=20;");
        fetch("h264?res=full;x0=0;y0=0;x1=320;y1=240;qp=17;iframe=1;ssn=1;");
    }
    EXPECT_TRUE(await([] { return fs::file_size("killed") > 10'000; }));
    EXPECT_EQ(killed.end(SIGKILL), -SIGKILL);
    EXPECT_GT(packets_of("killed").size(), 10U);
    for (Command* each : {&whole, &cut, &ring}) {
        EXPECT_EQ(each->end(SIGINT), 0) << each->said;
        EXPECT_THAT(each->said, HasSubstr(std::to_string(expected) + " packets"));
        EXPECT_THAT(each->said, HasSubstr(each == &cut ? "without pictures" : "with pictures"));
    }
    for (const auto& [file, bytes] : {std::pair{"whole", said}, {"ring", said}, {"cut", pictures}}) {
        std::size_t datagrams = 0;
        const auto packets = packets_of(file);
        const auto blocks = blocks_of(packets, datagrams);
        EXPECT_EQ(datagrams, expected) << file;
        EXPECT_EQ(std::accumulate(blocks.begin(), blocks.end(), std::string()), bytes) << file;
    }
    EXPECT_FALSE(fs::exists("ring.ring"));
}

TEST_F(Capture, NotesWhatTheSocketsHereDrop) {
    const UdpSocket camera(own_address(9), 69), driver("0.0.0.0", 0);
    const int little = 1;
    setsockopt(driver.descriptor(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    Command command({own_address(9), "-o", "field"});
    ASSERT_TRUE(command.says("capturing")) << command.said;
    std::vector<std::uint8_t> data(1454);
    camera::Endpoint peer{parse_address(own_address(9)), htons(69)};
    const auto request = link::read_request("image?");
    driver.send(request.data(), request.size(), peer);
    ASSERT_TRUE(await([&] { return camera.receive(data.data(), data.size(), peer) > 0; }));
    for (int i = 0; i < 100; ++i)
        camera.send(data.data(), data.size(), peer);
    std::size_t received = 0;
    while (driver.receive(data.data(), data.size(), peer) > 0)
        ++received;
    EXPECT_EQ(command.end(SIGTERM), 0);
    std::uint64_t added = 0, total = 0;
    for (const CapturedPacket& packet : packets_of("field"))
        for (const DropNote& note : drop_notes(packet.comment)) {
            added += note.added;
            total = note.total;
        }
    EXPECT_EQ(total, 100 - received);
    EXPECT_EQ(added, total);
    EXPECT_THAT(command.said, HasSubstr("sockets here dropped " + std::to_string(total)));
}

TEST_F(Capture, SaysInALineWhyItDoesNotBegin) {
    std::ofstream("there");
    fs::create_directory("left.ring");
    const std::tuple<int, const char*, std::vector<std::string>> cases[] = {
        {1, "no interface 'eth77'", {"-o", "new", "--interface", "eth77"}},
        {1, "'there' exists", {"-o", "there"}},
        {1, "'there' exists", {"-o", "there", "--ring", "1m"}},
        {1, "an earlier capture", {"-o", "left", "--ring", "1m"}},
        {1, "cannot make 'no/new'", {"-o", "no/new"}},
        {1, "finds no room", {"-o", "new", "--ring", "1m", "--ring-size", "900000T"}},
        {2, "no file", {}},
        {2, "given twice", {"-o", "new", own_address(1)}},
        {2, "keeps nothing", {"-o", "new", "--ring", "0"}},
        {2, "give a file, not '-'", {"-o", "-", "--ring", "1m"}},
        {2, "which is not given", {"-o", "new", "--ring-size", "1G"}}};
    for (const auto& [code, line, rest] : cases) {
        std::vector<std::string> words{own_address(1)};
        words.insert(words.end(), rest.begin(), rest.end());
        Command command(words);
        EXPECT_EQ(command.end(), code) << command.said;
        EXPECT_THAT(command.said, testing::AllOf(testing::StartsWith("plendix: "), HasSubstr(line)));
        EXPECT_FALSE(fs::exists("new"));
    }
}

}  // namespace
}  // namespace plendix::camera::test
