// `plendix record` without its files: the same session, loop and queue, from which a thread takes everything
// and drops it. Works in the current folder, until it is killed. Usage: session_host CONFIGURATION
#include <chrono>
#include <exception>
#include <iostream>
#include <thread>

#include "host/output_queue.h"
#include "host/process_state.h"
#include "host/session.h"
#include "record/advisor.h"
#include "record/config_file.h"
#include "record/screen.h"

namespace {

using namespace plendix;
using namespace std::chrono_literals;

constexpr std::size_t queue_bytes = 128U << 20U;  // this and the times are those of a recording
constexpr auto queue_linger = 50ms;
constexpr auto longest_wait = 50ms;
constexpr auto look_period = 250ms;

void drop_all(OutputQueue& queue) {
    while (!queue.finished())
        queue.pop(100ms);
}

class Host {
public:
    explicit Host(Session& session) : session_(session) {}

    void turn() {
        const auto now = Session::Clock::now();
        show(session_.serve(longest_wait), now);
        if (now >= next_look_) look(now);
    }

private:
    void show(const std::vector<Event>& events, Session::Clock::time_point now) {
        for (const Event& event : events)
            screen_.event(event, now);
    }

    void look(Session::Clock::time_point now) {
        next_look_ = now + look_period;
        const auto cameras = session_.states();
        show(advisor_.advise(cameras, now), now);
        screen_.update(cameras, RecorderNumbers(), now);
        session_.ask_for_life();
    }

    Session& session_;
    Screen screen_{std::cerr, ScreenOptions()};
    Advisor advisor_;
    Session::Clock::time_point next_look_;
};

void run(const char* configuration) {
    OutputQueue queue(queue_bytes, queue_linger);
    Session session({}, read_config(configuration).cameras);
    session.attach(queue);
    const OutputToFile driver_log("driver.log");
    std::thread(drop_all, std::ref(queue)).detach();  // both end with the process
    session.start();
    for (Host host(session);;)
        host.turn();
}

}  // namespace

int main(int count, char** values) {
    if (count != 2) {
        std::cerr << "usage: session_host CONFIGURATION\n";
        return 2;
    }
    try {
        run(values[1]);
    } catch (const std::exception& error) {
        std::cerr << "session_host: " << error.what() << '\n';
    }
    return 1;
}
