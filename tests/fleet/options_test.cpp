// The command's options, and pace.
#include "camera/camera_options.h"
#include "driver_bench.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using testing::HasSubstr;

TEST(Options, MakeCamerasOnConsecutiveAddresses) {
    CameraOptions options;
    options.address = "127.0.1.250";
    options.count = 10;
    options.models = {100, 105, 103};
    options.sensors = {"640x480", "1600x1200"};
    options.mac = "02-00-00-00-00-FF";
    options.registers = {"2=11", "300=7"};
    const auto configs = make_configs(options);
    ASSERT_EQ(configs.size(), 10U);
    EXPECT_EQ(configs[5].address, "127.0.1.255");
    EXPECT_EQ(configs[6].address, "127.0.2.0");
    EXPECT_EQ(configs[6].number, 7U);
    EXPECT_EQ(configs[4].model, 105);
    EXPECT_EQ(configs[5].sensor_width, 1600U);
    EXPECT_EQ(configs[1].mac, (std::array<std::uint8_t, 6>{2, 0, 0, 0, 1, 0}));
    EXPECT_EQ(configs[9].registers, (std::map<int, std::uint16_t>{{2, 11}, {300, 7}}));
}

TEST(Options, ThatCannotBeUsedAreNamed) {
    struct Case {
        const char* expected;
        void (*set)(CameraOptions&);
    };
    const Case cases[] = {
        {"--count 0: expected 1 to 255", [](auto& o) { o.count = 0; }},
        {"--count 256: expected 1 to 255", [](auto& o) { o.count = 256; }},
        {"--count 3: from 127.255.255.253 there are only 2 addresses",
         [](auto& o) { o.address = "127.255.255.253", o.count = 3; }},
        {"--address localhost: expected an IPv4", [](auto& o) { o.address = "localhost"; }},
        {"--address 224.0.0.1: expected an address of one", [](auto& o) { o.address = "224.0.0.1"; }},
        {"--sensor 8x8: expected WIDTHxHEIGHT", [](auto& o) { o.sensors = {"8x8"}; }},
        {"--mac 02: expected six pairs", [](auto& o) { o.mac = "02"; }},
        {"--model 70000: expected 0 to 65535", [](auto& o) { o.models = {70000}; }},
        {"--registers 2=65536: expected NUMBER=VALUE", [](auto& o) { o.registers = {"2=65536"}; }},
        {"--trigger 5: expected a time", [](auto& o) { o.trigger = "5"; }},
        {"--rate -1", [](auto& o) { o.rate_mbit = -1; }},
        {"--burst 0: expected 1 to 256", [](auto& o) { o.burst = 0; }},
        {"--faults: loss '1': expected a rate", [](auto& o) { o.faults = "loss=1"; }},
        {"scenario '/nowhere' cannot be read", [](auto& o) { o.scenario = "/nowhere"; }}};
    for (const Case& c : cases) {
        CameraOptions options;
        c.set(options);
        try {
            make_configs(options);
            make_behaviour(options);
            ADD_FAILURE() << "accepted: " << c.expected;
        } catch (const UsageError& error) {
            EXPECT_THAT(error.what(), HasSubstr(c.expected));
        }
    }
}

TEST(Pace, FollowsRateAndFramesPerSecond) {
    struct Case {
        double mbit, fps;
        std::size_t pictures;
    };
    for (const Case& c : {Case{2, 0, 4}, Case{0, 20, 5}}) {
        Behaviour behaviour;
        behaviour.rate_mbit = c.mbit;
        behaviour.max_fps = c.fps;
        Fleet fleet({Config{own_address(1)}}, behaviour);
        fleet.start();
        TftpClient client(own_address(1));
        const auto begin = Clock::now();
        for (std::size_t i = 0; i < c.pictures; ++i)
            ASSERT_TRUE(client.fetch("image?res=half;quality=8;").complete);
        const std::chrono::duration<double> taken = Clock::now() - begin;
        const Counters counters = fleet.counters(0);
        const double bits = static_cast<double>(counters.bytes + 4 * counters.blocks) * 8;
        const double least = c.mbit > 0 ? bits / c.mbit / 1e6 : static_cast<double>(c.pictures - 1) / c.fps;
        EXPECT_GT(taken.count(), least * 0.95);
        EXPECT_LT(taken.count(), least * 2 + 2);
    }
}

TEST(Pace, SendsABurstAheadOfItsAcknowledgements) {
    Behaviour behaviour;
    behaviour.burst = 4;
    Fleet fleet({Config{own_address(2)}}, behaviour);
    fleet.start();
    TftpClient client(own_address(2)), other(own_address(2));
    client.request(read_request("image?quality=8;", 1450));
    Bytes data;
    const auto expect_blocks = [&](int first, int last) {
        for (int number = first; number <= last; ++number)
            EXPECT_EQ(client.receive(data), (std::pair<int, int>{3, number}));
        EXPECT_EQ(other.read(122), 105);  // served behind all that came before
        EXPECT_FALSE(client.waits(0));
    };
    ASSERT_EQ(client.receive(data).first, 6);
    client.acknowledge(0);
    expect_blocks(1, 4);
    client.acknowledge(2);  // takes 1 with it
    expect_blocks(5, 6);
    client.acknowledge(1);
    expect_blocks(7, 6);
}

TEST(Pace, OfTheTriggerTogglesTheInput) {
    Behaviour behaviour;
    behaviour.trigger_period = std::chrono::milliseconds(20);
    Fleet fleet({Config{own_address(3)}}, behaviour);
    fleet.start();
    for (const int level : {1, 0, 1}) {
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (fleet.get_register(0, 25) != level && Clock::now() < end)
            std::this_thread::yield();
        EXPECT_EQ(fleet.get_register(0, 25), level);
    }
}

}  // namespace
}  // namespace plendix::camera::test
