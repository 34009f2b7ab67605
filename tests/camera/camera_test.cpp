// Registers, transfers and refusals of the simulated camera, over real sockets.
#include "camera/fleet.h"
#include "tftp_client.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

struct Running : Fleet {
    explicit Running(const std::string& address) : Fleet({Config{address}}) { start(); }
};

TEST(Registers, AnswerWritesWithTheValueTheyThenHold) {
    Running fleet("127.20.1.1");
    TftpClient client("127.20.1.1");
    struct Case {
        int number, start, written, held;
    };
    for (const Case& c : {Case{2, 99, 49, 49},
                          {79, 0, 12308, 12308},
                          {110, 0x404, 0x704, 0x704},
                          {111, 16, 65535, 65535},
                          {70, 0, 5, 0},
                          {73, 1200, 99, 1200},
                          {122, 105, 100, 105},
                          {123, 61750, 1, 61750},
                          {9999, 0, 7, 7}}) {
        SCOPED_TRACE(c.number);
        EXPECT_EQ(client.read(c.number), c.start);
        EXPECT_EQ(client.write(c.number, c.written), c.held);
        EXPECT_EQ(client.read(c.number), c.held);
        EXPECT_EQ(fleet.get_register(0, c.number), c.held);
    }
    fleet.set_register(0, 122, 107);
    EXPECT_EQ(client.read(122), 107);
}

TEST(Registers, Number25TellsTheTriggerAndTheRelayApart) {
    Running fleet("127.20.1.2");
    TftpClient client("127.20.1.2");
    EXPECT_EQ(fleet.relay(0), -1);
    for (const int level : {1, 0}) {
        fleet.set_trigger(0, level == 1);
        EXPECT_EQ(client.write(25, 48), 48);
        EXPECT_EQ(client.read(25), level);
    }
    for (const int value : {16, 32}) {
        EXPECT_EQ(client.write(25, value), value);
        EXPECT_EQ(client.read(25), value);
        EXPECT_EQ(client.write(25, 48), 48);
        EXPECT_EQ(fleet.relay(0), value / 16 - 1) << "and a poll must not touch the relay";
    }
}

TEST(Transfers, ArriveWholeWithEveryBlockSizeAndAreCounted) {
    Running fleet("127.20.1.3");
    fleet.keep_originals(0);
    TftpClient client("127.20.1.3");
    std::uint64_t blocks = 1, acknowledgements = 1;  // of the register read at the end
    const std::optional<int> sizes[] = {1450, 1024, 512, 94, 65464, std::nullopt};
    for (const auto size : sizes) {
        SCOPED_TRACE(size.value_or(0));
        const Reply reply = client.fetch("image?res=half;quality=8;", size);
        ASSERT_TRUE(reply.complete);
        EXPECT_EQ(reply.granted, size);
        EXPECT_EQ(reply.trailer.size(), 90U);
        ASSERT_GT(reply.payload.size(), 5000U);
        const Bytes file = fleet.originals(0).back();
        EXPECT_TRUE(std::equal(reply.payload.rbegin(), reply.payload.rend() - 2, file.rbegin()));
        blocks += reply.blocks.size();
        acknowledgements += reply.blocks.size() + (size ? 1 : 0);
    }
    client.read(122);
    const Counters counters = fleet.counters(0);
    EXPECT_EQ(counters.requests, std::size(sizes) + 1);
    EXPECT_EQ(counters.frames, std::size(sizes));
    EXPECT_EQ(counters.key_frames, std::size(sizes));
    EXPECT_EQ(counters.blocks, blocks);
    EXPECT_GE(counters.acknowledgements, acknowledgements);  // one more is on its way
    EXPECT_EQ(counters.register_reads, 1U);
}

TEST(Transfers, AreInStepWithAcknowledgements) {
    Running fleet("127.20.1.4");
    TftpClient client("127.20.1.4"), other("127.20.1.4");
    Bytes data;
    const auto block = [&] { return client.receive(data).second; };
    client.request(read_request("image?quality=2;", std::nullopt, "OCTET"));
    EXPECT_EQ(block(), 1);
    client.acknowledge(1);
    EXPECT_EQ(block(), 2);
    for (const int number : {1, 7, 2})  // repeated, not sent yet, awaited
        client.acknowledge(number);
    EXPECT_EQ(block(), 3);
    EXPECT_EQ(other.read(122), 105);  // served behind all that came before
    EXPECT_FALSE(client.waits(0)) << "a stray acknowledgement was answered";

    client.request(read_request("getreg?page=3;reg=122;", std::nullopt));
    EXPECT_EQ(block(), 1) << "a new request must replace the picture";
    client.acknowledge(1);
    client.acknowledge(2);
    EXPECT_EQ(other.read(122), 105);
    EXPECT_FALSE(client.waits(0)) << "a transfer went on behind its last block";
}

TEST(Requests, ThatCannotBeServedAreAnsweredWithAnError) {
    Running fleet("127.20.1.5");
    TftpClient client("127.20.1.5");
    constexpr int not_found = 1, access = 2, illegal = 4, option = 8;
    const std::pair<Bytes, int> malformed[] = {{{0}, illegal},
                                               {{0, 9, 0, 0}, illegal},
                                               {{0, 1, 'i', '?', 0}, illegal},
                                               {{0, 2, 'a', 0, 'o', 'c', 't', 'e', 't', 0}, access},
                                               {read_request("image?", 1450, "mail"), illegal},
                                               {read_request("image?", 7), option},
                                               {read_request("image?", 65465), option},
                                               {read_request("image?", 90), option},
                                               {read_request("h264?", 93), option}};
    for (const auto& [request, error] : malformed)
        EXPECT_EQ(client.fetch(request, 1450).error, error) << std::string(request.begin(), request.end());
    const char* names[] = {"passwd",
                           "image",
                           "image?res=third;",
                           "image?quality=27;",
                           "image?x0=1600;x1=1700;",
                           "image?x0=-1;",
                           "image?x0;",
                           "h264?x0=0;x1=31;res=half;",
                           "h264?qp=0;",
                           "getreg?page=2;reg=1;",
                           "setreg?page=3;reg=1;val=65536;"};
    for (const char* name : names)
        EXPECT_EQ(client.fetch(name).error, not_found) << name;
    EXPECT_EQ(fleet.counters(0).errors, std::size(malformed) + std::size(names));
    EXPECT_EQ(client.value("getreg?page=3;colour=red;reg=122;"), 105) << "unknown keys are ignored";
}

TEST(Requests, AreNotAnsweredByASilentCamera) {
    Running fleet("127.20.1.6");
    TftpClient client("127.20.1.6");
    fleet.set_silent(0, true);
    client.request(read_request("getreg?page=3;reg=123;", 1450));
    client.request({0, 9});
    while (fleet.counters(0).requests < 2)
        std::this_thread::yield();
    fleet.set_silent(0, false);
    EXPECT_EQ(client.read(122), 105) << "the first answer must be that to the last request";
    EXPECT_EQ(fleet.requested(0),
              (std::vector<std::string>{"getreg?page=3;reg=123;", "getreg?page=3;reg=122;"}));
}

TEST(Fleets, HoldCamerasApartAndTellWhatCannotBeBound) {
    std::vector<std::string> lines;
    Config odd{"127.20.1.8"};
    odd.registers[2] = 11;
    Fleet fleet({Config{"127.20.1.7"}, odd}, [&lines](const std::string& line) { lines.push_back(line); });
    fleet.start();
    TftpClient first("127.20.1.7"), second("127.20.1.8");
    for (const int value : {32, 32, 48})
        EXPECT_EQ(first.write(25, value), value);
    EXPECT_EQ(second.write(79, 5), 5);
    EXPECT_EQ(first.read(79), 0);
    EXPECT_EQ(second.read(2), 11);
    EXPECT_EQ(fleet.relay(1), -1);
    EXPECT_THROW(Fleet({Config{"localhost"}}), Failure);
    try {
        Fleet again({Config{"127.20.1.8"}});
        FAIL() << "bound twice";
    } catch (const Failure& failure) {
        EXPECT_EQ(std::string(failure.what()).rfind("127.20.1.8 port 69: in use", 0), 0U) << failure.what();
    }
    fleet.stop();
    EXPECT_EQ(lines, (std::vector<std::string>{"127.20.1.7 relay high", "127.20.1.8 register 79 = 5"}));
}

}  // namespace
}  // namespace plendix::camera::test
