// Faults as they are written down, when they come, and that a seed repeats them.
#include "camera/scenario.h"

#include <cstring>
#include <sstream>

#include "driver_bench.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

std::string refusal(const std::string& text) {
    std::istringstream stream(text);
    try {
        parse_scenario(stream, "street.txt", 9);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Scenarios, AreReadLineByLine) {
    std::istringstream text(
        "# morning\n\n 10s 7-9 loss 2%  # rush hour\n1.5s 1,3 silent 15s\n200ms * delay 1%/50ms\n1m 2 "
        "reboot");
    const auto steps = parse_scenario(text, "street.txt", 9);
    ASSERT_EQ(steps.size(), 9U + 2 + 3 + 1);
    const auto check = [](const ScenarioStep& step, std::chrono::milliseconds at, std::size_t camera,
                          FaultKind kind, bool once, double rate, std::chrono::milliseconds time) {
        EXPECT_EQ(step.at, at);
        EXPECT_EQ(step.camera, camera);
        EXPECT_EQ(step.fault.kind, kind);
        EXPECT_EQ(step.fault.once, once);
        EXPECT_DOUBLE_EQ(once ? rate : step.fault.rate, rate);
        EXPECT_EQ(step.fault.time, time);
    };
    check(steps[8], 200ms, 8, FaultKind::delay, false, 0.01, 50ms);
    check(steps[10], 1500ms, 2, FaultKind::silent, true, 0, 15s);
    check(steps[11], 10s, 6, FaultKind::loss, false, 0.02, 0ms);
    check(steps[14], 60s, 1, FaultKind::reboot, true, 0, 2s);
}

TEST(Scenarios, ThatAreWrongNameLineAndRemedy) {
    const std::pair<const char*, const char*> cases[] = {
        {"10s 7", "expected TIME CAMERAS FAULT [VALUE]"},
        {"10s 7 loss 1% 2%", "expected TIME CAMERAS FAULT [VALUE]"},
        {"10 7 loss 1%", "time '10': expected a number with ms, s or m"},
        {"25h 7 loss 1%", "time '25h'"},
        {"-1s 7 loss 1%", "time '-1s'"},
        {"1s 0 loss 1%", "cameras '0'"},
        {"1s 9-7 loss 1%", "cameras '9-7': expected a number, a range"},
        {"1s seven loss 1%", "cameras 'seven'"},
        {"1s 7-10 loss 1%", "camera 10: expected 1 to 9"},
        {"1s 7 losss 1%", "'losss' is no fault: expected one of loss, ack-loss,"},
        {"1s 7 loss 101%", "loss '101%': expected a rate from 0% to 100%"},
        {"1s 7 loss 5s", "loss '5s': expected a rate"},
        {"1s 7 silent 5", "silent '5': expected a rate from 0% to 100%, a time such as"},
        {"1s 7 delay 5%/", "delay '5%/'"}};
    for (const auto& [line, expected] : cases) {
        const std::string text = refusal("1s * reboot\n" + std::string(line) + "\n");
        EXPECT_THAT(text, StartsWith("street.txt:2: ")) << line;
        EXPECT_THAT(text, HasSubstr(expected)) << line;
    }
    EXPECT_THROW(read_scenario("/nonexistent", 1), UsageError);
    for (const char* list : {"loss=1%,,loss", "loss=", "=1%", "loss:1%"})
        EXPECT_THROW(parse_faults(list), UsageError) << list;
}

TEST(Scenarios, ComeToTheirCamerasAtTheirTime) {
    std::istringstream text("0s 1 mac-change\n0s 2 silent 1m\n0s 3 error 100%\n100ms 3 error 0%\n");
    Behaviour behaviour;
    behaviour.scenario = parse_scenario(text, "text", 3);
    Fleet fleet({Config{own_address(1)}, Config{own_address(2)}, Config{own_address(3)}}, behaviour);
    fleet.start();
    const auto faults = [&](std::size_t i, FaultKind kind) {
        return fleet.counters(i).faults.at(static_cast<std::size_t>(kind));
    };
    TftpClient first(own_address(1)), second(own_address(2)), third(own_address(3));
    while (third.read(122) == -1)  // refused for a while, then no more
        ASSERT_LT(faults(2, FaultKind::error), 100'000U);
    EXPECT_GT(faults(2, FaultKind::error), 0U);
    EXPECT_EQ(faults(0, FaultKind::mac_change) + faults(1, FaultKind::silent), 2U);
    const Reply reply = first.fetch("image?res=half;x1=64;y1=64;");
    const in_addr_t address = inet_addr(own_address(1).c_str());
    Bytes tail(4);
    std::memcpy(tail.data(), &address, tail.size());
    EXPECT_NE(Bytes(reply.trailer.begin() + 9, reply.trailer.begin() + 12),
              Bytes(tail.begin() + 1, tail.end()));
    second.request(read_request("getreg?page=3;reg=122;", 1450));
    EXPECT_FALSE(second.waits(100));
}

/// Fetches the same pictures again and again; what arrived, lost blocks and all.
std::vector<Bytes> run(std::uint64_t seed, std::size_t cameras) {
    std::vector<Config> configs;
    for (std::size_t i = 1; i <= cameras; ++i)
        configs.push_back({own_address(i)});
    Behaviour behaviour;
    behaviour.seed = seed;
    behaviour.faults = parse_faults("corrupt=10%,duplicate=5%,wrong-block=5%,garbage=5%");
    Fleet fleet(configs, behaviour);
    fleet.start();
    std::vector<Bytes> seen;
    for (int i = 0; i < 6; ++i) {
        TftpClient client(own_address(1));
        client.request(read_request("image?res=half;quality=8;", 1450));
        Bytes data;
        for (bool last = false; !last;) {
            const auto [opcode, number] = client.receive(data);
            if (opcode == 6) client.acknowledge(0);
            if (opcode == 3) client.acknowledge(number);
            last = opcode == 0 || (opcode == 3 && data.size() < 1450);
            seen.push_back(opcode == 3 || opcode == 6 ? data : Bytes{9});  // garbage is as random
        }
    }
    return seen;
}

TEST(Seeds, RepeatARunWhateverOtherCamerasDo) {
    const auto first = run(5, 5);
    ASSERT_GT(first.size(), 50U);
    EXPECT_TRUE(run(5, 5) == first);
    EXPECT_TRUE(run(5, 7) == first);
    EXPECT_FALSE(run(6, 5) == first);
}

}  // namespace
}  // namespace plendix::camera::test
