// The host core: queues between threads, clocks, and a session with the built driver.
#include "host/session.h"

#include "host/clock_watch.h"
#include "host/output_queue.h"
#include "plugin/host_records.h"
#include "support/camera_bench.h"
#include "support/folder.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;

FramePointer frame(int camera, bool key, std::size_t bytes = 100) {
    const auto frame = std::make_shared<Frame>();
    frame->camera = camera;
    frame->key = key;
    frame->data.resize(bytes);
    return frame;
}

TEST(OutputQueue, LosesWholePicturesOfItsOwnAndGoesOnWithAKeyFrame) {
    OutputQueue queue(250), other(1000);
    Event event;
    event.values["text"] = std::string(300, 'x');
    for (const bool key : {true, false, false})  // the third finds no room
        for (OutputQueue* each : {&queue, &other})
            each->push(frame(1, key));
    queue.push(event);
    EXPECT_EQ(queue.lost(1), 1U);
    EXPECT_EQ(other.lost(), 0U);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(queue.pop(0ms).has_value()) << "events have room when frames have none";
    queue.push(frame(1, false));  // refers to the one that was lost
    EXPECT_FALSE(queue.pop(0ms).has_value());
    queue.push(frame(2, false));
    queue.push(frame(1, true));
    queue.finish();
    EXPECT_EQ(std::get<FramePointer>(*queue.pop(1h))->camera, 2);
    EXPECT_FALSE(queue.finished());
    EXPECT_TRUE(std::get<FramePointer>(*queue.pop(1h))->key);
    EXPECT_FALSE(queue.pop(1h).has_value()) << "does not wait any more";
    EXPECT_TRUE(queue.finished() && queue.lost(1) == 2 && queue.lost(2) == 0 && queue.lost() == 2);
}

TEST(ClockWatch, TellsAClockThatIsSetFromOneThatIsSlewed) {
    ClockWatch watch;
    std::int64_t wall = 0, monotonic = 5'000'000;  // 1970
    const auto jump = [&](std::int64_t wall_step, std::int64_t step) {
        return watch.look(wall += wall_step, monotonic += step).value_or(0);
    };
    EXPECT_EQ(jump(0, 0), 0);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(jump(1100, 1000), 0) << "ten seconds in all";
    EXPECT_EQ(jump(1'795'000'000'040, 40), 1'795'000'000'000);
    EXPECT_EQ(jump(40, 40), 0) << "said once";
    EXPECT_EQ(jump(40 - 5000, 40), -5000);
    EXPECT_EQ(watch.epoch(), 2U);
}

class SessionTest : public CameraBench {
protected:
    CameraSettings settings(int number) const {
        CameraSettings camera;
        camera.number = number;
        camera.address = own_address(static_cast<std::size_t>(number));
        camera.name = "Camera " + std::to_string(number);
        camera.codec = number % 2 == 0 ? Codec::h264 : Codec::jpeg;
        camera.rate = 50;
        return camera;
    }
    /// Serves until the camera is in this condition.
    bool await(Session& session, int number, CameraCondition condition) {
        const auto end = Session::Clock::now() + 20s;
        while (Session::Clock::now() < end) {
            for (const Event& event : session.serve(20ms))
                events.push_back(event);
            for (const CameraState& state : session.states())
                if (state.number == number && state.condition == condition) return true;
        }
        return false;
    }
    std::size_t told(EventKind kind, int camera) const {
        return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [&](const Event& event) {
            return event.kind == kind && event.camera == camera;
        }));
    }

    TemporaryFolder folder;
    std::vector<Event> events;
};

TEST_F(SessionTest, KnowsEachCameraAndTouchesOnlyThoseThatChange) {
    Behaviour behaviour;
    behaviour.scenario = {{4s, 1, parse_fault("silent", "9m")}};
    std::vector<Config> simulated(4, sensor(320, 240));
    for (std::size_t i = 0; i < simulated.size(); ++i)
        simulated[i].address = own_address(i + 1);
    simulated[3].model = 150;
    fleet = std::make_unique<Fleet>(simulated, behaviour);
    fleet->start();
    std::vector<CameraSettings> cameras;
    for (int number = 1; number <= 5; ++number)
        cameras.push_back(settings(number));
    cameras[2].enabled = false;
    cameras[0].brightness = 77;
    OutputQueue queue(64U << 20U);
    Session session(PLENDIX_LIBRARY, cameras);
    session.attach(queue);
    session.start();
    EXPECT_TRUE(await(session, 1, CameraCondition::live));
    EXPECT_TRUE(await(session, 3, CameraCondition::off));
    EXPECT_TRUE(await(session, 4, CameraCondition::refused));
    EXPECT_TRUE(await(session, 5, CameraCondition::connecting));
    EXPECT_TRUE(await(session, 2, CameraCondition::silent));
    EXPECT_EQ(session.states().at(3).refusal, "Model 150 is not supported");

    const std::uint64_t connections = session.states().front().connections;
    cameras[2].enabled = true;
    cameras.erase(cameras.begin() + 3);
    session.change(cameras);
    EXPECT_TRUE(await(session, 3, CameraCondition::live));
    for (const auto& [enabled, condition] :
         {std::pair{false, CameraCondition::off}, {true, CameraCondition::live}}) {
        cameras[2].enabled = enabled;
        session.change(cameras);
        EXPECT_TRUE(await(session, 3, condition));
    }
    for (const Event& event : events)
        EXPECT_FALSE(event.camera == 3 && event.values.value("state", "") == "refused") << "that was off";
    const auto states = session.states();
    EXPECT_EQ(states.size(), 4U);
    EXPECT_EQ(states.front().connections, connections);
    EXPECT_EQ(states.front().width, 320);
    const auto last = session.stop();
    const std::uint64_t frames = session.states().front().frames;
    std::uint64_t handed = 0, first_camera = 0;
    std::int64_t before = 0;
    while (const auto delivery = queue.pop(0ms)) {
        const auto* frame = std::get_if<FramePointer>(&*delivery);
        if (frame == nullptr) {
            ++handed;
            continue;
        }
        if ((*frame)->camera == 1) ++first_camera;
        EXPECT_GE((*frame)->arrival_ms, before);
        before = (*frame)->arrival_ms;
    }
    EXPECT_TRUE(queue.finished());
    EXPECT_EQ(first_camera, frames);
    EXPECT_EQ(handed, events.size() + last.size());
    EXPECT_EQ(told(EventKind::state, 4), 1U);
}

}  // namespace
}  // namespace plendix::camera::test
