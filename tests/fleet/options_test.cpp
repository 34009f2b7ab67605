// The command's options, scenario files, and pace.
#include <sstream>

#include "camera/camera_options.h"
#include "support/camera_bench.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;
using namespace std::chrono_literals;

TEST(Options, MakeCamerasOnConsecutiveAddresses) {
    CameraOptions options;
    options.address = "127.0.1.250";
    options.count = 10;
    options.models = {100, 105, 103};
    options.mac = "02-00-00-00-00-FF";
    options.registers = {"2=11", "300=7"};
    const auto configs = make_configs(options);
    EXPECT_EQ(configs.at(6).address, "127.0.2.0");
    EXPECT_EQ(configs[4].model, 105);
    EXPECT_EQ(configs[1].mac, (std::array<std::uint8_t, 6>{2, 0, 0, 0, 1, 0}));
    EXPECT_EQ(configs.at(9).registers, (std::map<int, std::uint16_t>{{2, 11}, {300, 7}}));
}

TEST(Options, ThatCannotBeUsedAreNamed) {
    const std::pair<const char*, void (*)(CameraOptions&)> cases[] = {
        {"--count 256: expected 1 to 255", [](auto& o) { o.count = 256; }},
        {"there are only 1 addresses", [](auto& o) { o.address = "127.255.255.254", o.count = 2; }},
        {"--address localhost: expected an IPv4", [](auto& o) { o.address = "localhost"; }},
        {"--address 224.0.0.1: expected an address of one", [](auto& o) { o.address = "224.0.0.1"; }},
        {"--sensor 8x8: expected WIDTHxHEIGHT", [](auto& o) { o.sensors = {"8x8"}; }},
        {"--mac 02: expected six pairs", [](auto& o) { o.mac = "02"; }},
        {"--model 70000: expected 0 to 65535", [](auto& o) { o.models = {70000}; }},
        {"--registers 2=65536: expected NUMBER=VALUE", [](auto& o) { o.registers = {"2=65536"}; }},
        {"--trigger 5: expected a time", [](auto& o) { o.trigger = "5"; }},
        {"--rate -1", [](auto& o) { o.rate_mbit = -1; }},
        {"--burst 0: expected 1 to 256", [](auto& o) { o.burst = 0; }},
        {"--faults: ", [](auto& o) { o.faults = "loss=1%,,loss"; }},
        {"scenario '/nowhere' cannot be read", [](auto& o) { o.scenario = "/nowhere"; }}};
    for (const auto& [expected, set] : cases) {
        CameraOptions options;
        set(options);
        const auto use = [&options] { make_configs(options), make_behaviour(options); };
        EXPECT_THAT(use, ThrowsMessage<UsageError>(HasSubstr(expected)));
    }
}

std::vector<ScenarioStep> parse(const std::string& text, std::size_t cameras) {
    std::istringstream stream(text);
    return parse_scenario(stream, "street.txt", cameras);
}

TEST(Scenarios, AreReadLineByLine) {
    std::ostringstream told;
    const std::string text =
        "# morning\n\n 10s 2-3 loss 2%  # rush hour\n1.5s 1,3 silent 15s\n200ms * delay 1%/50ms\n1m 2 reboot";
    for (const ScenarioStep& step : parse(text, 3))
        told << step.at.count() << " ms " << step.camera << ' ' << fault_name(step.fault.kind) << ' '
             << (step.fault.once ? 0 : step.fault.rate) << ' ' << step.fault.time.count() << '\n';
    EXPECT_EQ(told.str(),
              "200 ms 0 delay 0.01 50\n200 ms 1 delay 0.01 50\n200 ms 2 delay 0.01 50\n"
              "1500 ms 0 silent 0 15000\n1500 ms 2 silent 0 15000\n"
              "10000 ms 1 loss 0.02 0\n10000 ms 2 loss 0.02 0\n60000 ms 1 reboot 0 2000\n");
}

TEST(Scenarios, ThatAreWrongNameLineAndRemedy) {
    const std::pair<const char*, const char*> cases[] = {
        {"10s 7", "expected TIME CAMERAS FAULT [VALUE]"},
        {"10 7 loss 1%", "time '10': expected a number with ms, s or m"},
        {"1s 0 loss 1%", "cameras '0'"},
        {"1s 9-7 loss 1%", "cameras '9-7': expected a number, a range"},
        {"1s 7-10 loss 1%", "camera 10: expected 1 to 9"},
        {"1s 7 losss 1%", "'losss' is no fault: expected one of loss, ack-loss,"},
        {"1s 7 loss 101%", "loss '101%': expected a rate from 0% to 100%"},
        {"1s 7 loss 5s", "loss '5s': expected a rate"},
        {"1s 7 silent 5", "silent '5': expected a rate from 0% to 100%, a time such as"},
        {"1s 7 delay 5%/", "delay '5%/'"}};
    for (const auto& [line, expected] : cases)
        EXPECT_THAT([line = line] { parse("1s * reboot\n" + std::string(line) + "\n", 9); },
                    ThrowsMessage<UsageError>(
                        testing::AllOf(testing::StartsWith("street.txt:2: "), HasSubstr(expected))));
}

TEST_F(CameraBench, FollowsRateFramesPerSecondAndTriggerPeriod) {
    Behaviour behaviour;
    behaviour.trigger_period = 20ms;
    for (const auto& [mbit, fps] : {std::pair(2.0, 0.0), std::pair(0.0, 20.0)}) {
        behaviour.rate_mbit = mbit;
        behaviour.max_fps = fps;
        start({}, 1, behaviour);
        const auto begin = Clock::now();
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(client.fetch("image?res=half;quality=8;").complete);
        const std::chrono::duration<double> taken = Clock::now() - begin;
        const Counters counters = fleet->counters(0);
        const double bits = static_cast<double>(counters.bytes + 4 * counters.blocks) * 8;
        const double least = mbit > 0 ? bits / mbit / 1e6 : 4 / fps;
        EXPECT_GT(taken.count(), least * 0.95);
        EXPECT_LT(taken.count(), least * 2 + 2);
    }
    const auto end = Clock::now() + 10s;
    for (const int level : {1, 0, 1})
        while (client.read(25) != level)
            ASSERT_LT(Clock::now(), end) << "level " << level;
}

}  // namespace
}  // namespace plendix::camera::test
