// What the driver does about faults, that both sides count the same, when they come, what repeats them.
#include <deque>
#include <sstream>

#include "driver_bench.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;

enum class Outcome {
    delivered,  // as if nothing had happened
    dropped,    // told as a missing block; a key frame is asked for at once
    vanished,   // no frame and no message; the next request follows
    timed_out   // the stalled transfer is given up and the camera identified again
};

std::size_t count(const std::vector<std::string>& lines, const std::string& part) {
    const auto has_part = [&](const std::string& line) { return line.find(part) != std::string::npos; };
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), has_part));
}

class Faults : public DriverBench {
protected:
    /// Until the option acknowledgement of a request is on its way.
    void await_options() {
        device->m_dwPollTime = device->m_dwOutputTime = timeGetTime();
        fd_set sets[3] = {};
        while (device->m_dwSendTime == 0)
            device->Set(sets[0], sets[1], sets[2]);
        pollfd answer{device->m_Socket, POLLIN, 0};
        ASSERT_EQ(poll(&answer, 1, 10'000), 1);
    }
    /// Puts the clock of the outstanding transfer over the driver's limit.
    void let_it_stall() { device->m_dwSendTime = (timeGetTime() - 10'001) | 1; }
    /// Passes until then, and lets transfers stall that get no answer for a while.
    template <typename Condition>
    bool despite_stalls(Condition condition) {
        return until([&] {
            const bool waits = device->m_Socket != -1 && device->m_dwSendTime != 0;
            if (waits && timeGetTime() - device->m_dwSendTime > 400) {
                let_it_stall();
                ++stalls;
            }
            return condition();
        });
    }
    Bytes mac() const { return {std::begin(device->m_Input.m_MAC), std::end(device->m_Input.m_MAC)}; }
    std::size_t asked(const std::string& part) const { return count(fleet->requested(0), part); }
    std::size_t told(const std::string& part) const { return count(host.log_lines(), part); }
    /// Every picture asked for arrived or is known to be lost; so many are lost.
    std::size_t lost() const {
        const Counters counters = fleet->counters(0);
        EXPECT_EQ(host.frames().size() + counters.frames_lost, counters.pictures);
        return counters.frames_lost;
    }

    std::size_t stalls = 0;
};

TEST_F(Faults, HaveTheirOutcome) {
    // Late: when the option acknowledgement is on its way.
    const std::tuple<const char*, bool, Outcome> cases[] = {
        {"loss,no-oack,oack-512,error,silent=300ms,reboot=300ms", false, Outcome::timed_out},
        {"ack-loss", true, Outcome::timed_out},
        {"duplicate,delay=50ms,corrupt,garbage,foreign", true, Outcome::delivered},
        {"mac-change", false, Outcome::delivered},
        {"loss,wrong-block", true, Outcome::dropped},
        {"truncate", true, Outcome::vanished}};
    for (const auto& [faults, late, outcome] : cases)
        for (Fault fault : parse_faults(faults)) {
            SCOPED_TRACE(std::string(fault_name(fault.kind)) + (late ? " late" : " early"));
            fault.once = true;
            connect(sensor(640, 480));
            ASSERT_TRUE(frames(2));
            client.write(25, 32);
            const Bytes mac_before = mac();
            changed = false;
            if (late) await_options();
            fleet->inject(0, fault);
            const bool timed_out = outcome == Outcome::timed_out, dropped = outcome == Outcome::dropped;
            if (timed_out) {
                ASSERT_TRUE(
                    until([&] { return fleet->counters(0).frames_lost > 0 && device->m_dwSendTime != 0; }));
                EXPECT_EQ(asked("reg=122;"), 1U);
                EXPECT_EQ(told(own_address(1) + " timeout"), 0U) << "before its time";
                let_it_stall();
            }
            ASSERT_TRUE(despite_stalls([&] { return host.frames().size() >= 5; }));
            EXPECT_EQ(told(own_address(1) + " timeout") > 0, timed_out);
            EXPECT_EQ(asked("reg=122;") > 1, timed_out) << "identification";
            EXPECT_EQ(told("did not receive block"), dropped ? 1U : 0U);
            EXPECT_EQ(asked("iframe=1;"), timed_out || dropped ? 2U : 1U);
            EXPECT_EQ(fleet->counters(0).faults.at(static_cast<std::size_t>(fault.kind)), 1U);
            EXPECT_EQ(lost(), outcome == Outcome::delivered ? 0U : 1U);
            EXPECT_EQ(changed && mac() != mac_before, fault.kind == FaultKind::mac_change);
            const bool rebooted = fault.kind == FaultKind::reboot;
            EXPECT_EQ(client.read(25), rebooted ? 0 : 32);
            EXPECT_EQ(fleet->relay(0), rebooted ? -1 : 1);
        }
}

TEST_F(Faults, OfAllKindsLeaveBothSidesWithTheSameCount) {
    connect(sensor(640, 480));
    ASSERT_TRUE(frames(1));
    for (const Fault& fault :
         parse_faults("loss=2%,ack-loss=1%,duplicate=5%,reorder=20%,delay=2%/5ms,corrupt=5%,truncate=2%,"
                      "garbage=5%,foreign=5%,wrong-block=2%,no-oack=1%,error=1%,mac-change=5%"))
        fleet->inject(0, fault);
    ASSERT_TRUE(despite_stalls([&] { return host.frames().size() >= 30 && device->m_dwSendTime == 0; }));
    EXPECT_GT(lost(), 0U);
    EXPECT_EQ(told("timeout"), stalls);
}

TEST_F(Faults, OfAScenarioComeToTheirCamerasAtTheirTime) {
    std::istringstream text(
        "0s 1 silent 1ms\n0s 1-2 silent 1m\n1ms 2 silent 1ms\n"
        "0s 3 mac-change\n0s 3 error 100%\n100ms 3 error 0%\n");
    Behaviour behaviour;
    behaviour.scenario = parse_scenario(text, "text", 3);
    start({}, 3, behaviour);
    const auto faults = [&](std::size_t i, FaultKind kind) {
        return fleet->counters(i).faults.at(static_cast<std::size_t>(kind));
    };
    TftpClient third(own_address(3));
    while (third.read(122) == -1)  // refused for a while, then no more
        ASSERT_LT(faults(2, FaultKind::error), 100'000U);
    EXPECT_GT(faults(2, FaultKind::error), 0U);
    EXPECT_EQ(faults(2, FaultKind::mac_change), 1U);
    for (const std::size_t i : {0U, 1U}) {
        EXPECT_EQ(faults(i, FaultKind::silent), 2U);
        TftpClient unheard(own_address(i + 1));
        unheard.request(read_request("getreg?page=3;reg=122;", 1450));
        while (fleet->counters(i).requests == 0)
            ASSERT_EQ(third.read(122), 105);
        EXPECT_EQ(third.read(122), 105);  // served behind it
        EXPECT_FALSE(unheard.waits(0)) << "the shorter silence ended the longer one";
    }
}

TEST_F(Faults, AreRepeatedByTheSeedWhateverOtherCamerasDo) {
    const auto run = [&](std::uint64_t seed, std::size_t cameras, std::size_t watched = 1) {
        Behaviour behaviour;
        behaviour.seed = seed;
        behaviour.faults = parse_faults("corrupt=10%,duplicate=1%,wrong-block=1%");
        start({}, cameras, behaviour);
        std::vector<Bytes> seen;
        std::deque<TftpClient> clients;  // one port each: a camera goes on where a client was
        for (std::size_t i = 0; i < 8 * cameras; ++i) {
            const std::size_t number = i % cameras + 1;
            const Reply reply = clients.emplace_back(own_address(number)).fetch("image?res=half;quality=8;");
            if (number == watched) seen.push_back(reply.payload);  // without the MAC address
        }
        return seen;
    };
    const auto first = run(5, most_live_cameras + 1);  // their pictures have no clock
    EXPECT_TRUE(run(5, most_live_cameras + 1) == first);
    EXPECT_TRUE(run(5, most_live_cameras + 3) == first);
    EXPECT_FALSE(run(6, most_live_cameras + 1) == first);
    EXPECT_FALSE(run(5, most_live_cameras + 1, 2) == first) << "each camera has faults of its own";
}

}  // namespace
}  // namespace plendix::camera::test
