// What the driver does about each kind of fault, and that both sides count the same.
#include <algorithm>

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

struct Case {
    FaultKind kind;
    bool late;  // comes when the option acknowledgement is on its way
    Outcome outcome;
    std::chrono::milliseconds time = 0ms;
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << fault_name(c.kind);
}

class Faults : public DriverBench, public testing::WithParamInterface<Case> {
protected:
    Faults() {
        Config config{own_address(1)};
        config.sensor_width = 640;
        config.sensor_height = 480;
        fleet = std::make_unique<Fleet>(std::vector{config});
        fleet->start();
        connect(config.address);
    }
    /// Lets the fault happen to the next picture.
    void inject(const Case& c) {
        if (c.late) {
            device->m_dwPollTime = device->m_dwOutputTime = timeGetTime();
            fd_set sets[3] = {};
            while (device->m_dwSendTime == 0)
                device->Set(sets[0], sets[1], sets[2]);
            pollfd answer{device->m_Socket, POLLIN, 0};
            ASSERT_EQ(poll(&answer, 1, 10'000), 1);
        }
        fleet->inject(0, {c.kind, true, 0, c.time});
    }
    bool stalled() {
        return until([&] { return fleet->counters(0).frames_lost > 0 && device->m_dwSendTime != 0; });
    }
    Bytes mac() const { return {std::begin(device->m_Input.m_MAC), std::end(device->m_Input.m_MAC)}; }
    std::size_t asked(const std::string& part) const {
        const auto names = fleet->requested(0);
        return static_cast<std::size_t>(std::count_if(names.begin(), names.end(), [&](const auto& name) {
            return name.find(part) != std::string::npos;
        }));
    }
    std::size_t lines(const std::string& part) const {
        const auto all = host.log_lines();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(), [&](const auto& line) { return line.find(part) != std::string::npos; }));
    }

    std::unique_ptr<Fleet> fleet;
};

TEST_P(Faults, HaveTheirOutcome) {
    const Case& c = GetParam();
    ASSERT_TRUE(frames(2));
    fleet->set_register(0, 300, 7);
    const auto mac_before = mac();
    changed = false;
    inject(c);
    if (c.outcome == Outcome::timed_out) {
        ASSERT_TRUE(stalled());
        EXPECT_EQ(asked("reg=122;"), 1U);
        EXPECT_EQ(lines(own_address(1) + " timeout"), 0U) << "before its time";
        let_it_stall();
    }
    ASSERT_TRUE(despite_stalls([&] { return host.frames().size() >= 5; }));
    const bool timed_out = c.outcome == Outcome::timed_out, dropped = c.outcome == Outcome::dropped;
    EXPECT_EQ(lines(own_address(1) + " timeout") > 0, timed_out);
    EXPECT_EQ(asked("reg=122;") > 1, timed_out) << "identification";
    EXPECT_EQ(lines("did not receive block"), dropped ? 1U : 0U);
    EXPECT_EQ(asked("iframe=1;"), timed_out || dropped ? 2U : 1U);
    const Counters counters = fleet->counters(0);
    EXPECT_EQ(counters.faults.at(static_cast<std::size_t>(c.kind)), 1U);
    EXPECT_EQ(counters.frames_lost, c.outcome == Outcome::delivered ? 0U : 1U);
    EXPECT_EQ(host.frames().size() + counters.frames_lost, counters.pictures);
    EXPECT_EQ(changed && mac() != mac_before, c.kind == FaultKind::mac_change);
    EXPECT_EQ(fleet->get_register(0, 300), c.kind == FaultKind::reboot ? 0 : 7);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Faults,
                         testing::Values(Case{FaultKind::loss, false, Outcome::timed_out},
                                         Case{FaultKind::loss, true, Outcome::dropped},
                                         Case{FaultKind::ack_loss, true, Outcome::timed_out},
                                         Case{FaultKind::duplicate, true, Outcome::delivered},
                                         Case{FaultKind::delay, true, Outcome::delivered, 50ms},
                                         Case{FaultKind::corrupt, true, Outcome::delivered},
                                         Case{FaultKind::truncate, true, Outcome::vanished},
                                         Case{FaultKind::garbage, true, Outcome::delivered},
                                         Case{FaultKind::foreign, true, Outcome::delivered},
                                         Case{FaultKind::wrong_block, true, Outcome::dropped},
                                         Case{FaultKind::no_oack, false, Outcome::timed_out},
                                         Case{FaultKind::oack_512, false, Outcome::timed_out},
                                         Case{FaultKind::error, false, Outcome::timed_out},
                                         Case{FaultKind::silent, false, Outcome::timed_out, 300ms},
                                         Case{FaultKind::reboot, false, Outcome::timed_out, 300ms},
                                         Case{FaultKind::mac_change, false, Outcome::delivered}),
                         [](const auto& row) {
                             std::string name = fault_name(row.param.kind);
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name + (row.param.late ? "Late" : "Early");
                         });

TEST_F(Faults, OfOrderHurtOnlyInFrontOfTheTrailer) {
    device->m_Input.m_nStandard = 0;
    device->m_Input.m_nWidth = 640;  // a width, so that the camera's model does not decide
    device->m_Input.m_nHeight = 480;
    ASSERT_TRUE(frames(1));
    fleet->inject(0, {FaultKind::reorder, false, 1, 0ms});
    ASSERT_TRUE(until([&] { return lines("did not receive block") >= 2; }));
    fleet->inject(0, {FaultKind::reorder, false, 0, 0ms});
    fleet->inject(0, {FaultKind::reorder, true, 0, 0ms});  // the first two blocks of many
    const std::size_t before = host.frames().size();
    ASSERT_TRUE(frames(before + 2));
    const Counters counters = fleet->counters(0);
    EXPECT_GE(counters.frames_lost, 2U);
    EXPECT_EQ(counters.frames_lost, lines("did not receive block"));
    EXPECT_EQ(host.frames().size() + counters.frames_lost, counters.pictures);
}

TEST_F(Faults, OfAllKindsLeaveBothSidesWithTheSameCount) {
    ASSERT_TRUE(frames(1));
    for (const Fault& fault :
         parse_faults("loss=2%,ack-loss=1%,duplicate=5%,reorder=5%,delay=2%/5ms,corrupt=5%,truncate=2%,"
                      "garbage=5%,foreign=5%,wrong-block=2%,no-oack=1%,error=1%,mac-change=5%"))
        fleet->inject(0, fault);
    ASSERT_TRUE(despite_stalls([&] { return host.frames().size() >= 30 && device->m_dwSendTime == 0; }));
    const Counters counters = fleet->counters(0);
    EXPECT_EQ(host.frames().size() + counters.frames_lost, counters.pictures);
    EXPECT_EQ(lines("timeout"), stalls);
    EXPECT_GT(counters.frames_lost, 0U);
}

}  // namespace
}  // namespace plendix::camera::test
