#include <unistd.h>

#include <iostream>
#include <optional>

#include "ffmpeg.h"
#include "host/lossy_output.h"
#include "host/scratch_folder.h"
#include "http/listening_socket.h"
#include "serve/recordings.h"
#include "serve/routes.h"
#include "serve/serve_plan.h"
#include "usage.h"

namespace plendix {
namespace {

void add_routes(Router& router, House& house, Recordings& recordings, Guard& guard, const Server*& server,
                const std::string& version) {
    guard.add_routes(router, version);
    add_camera_routes(router, house, version);
    add_event_routes(router, house);
    add_live_routes(router, house);
    add_program_routes(router, house, guard, server, version);
    add_record_routes(router, house, recordings);
    add_page_routes(router);  // last: any other path may be a file of the page
}

}  // namespace

int serve(ServePlan plan) {
    av_log_set_level(AV_LOG_ERROR);
    Guard guard(plan.guard);
    plan.server.socket = open_listening_socket(plan.server.listen);
    StopSignals signals(StopSignals::Again::ends_process,
                        plan.house.reload ? StopSignals::HangUp::reloads : StopSignals::HangUp::stops);
    std::optional<ScratchFolder> scratch;
    if (plan.scratch) plan.house.state = scratch.emplace().path();
    const std::shared_ptr<void> cameras = plan.prepare ? plan.prepare(plan.house) : nullptr;
    const LossyOutput standard_error(std::cerr, STDERR_FILENO);
    House house(plan.house);
    Recordings recordings(house.recordings());
    Router router;
    const Server* running = nullptr;
    add_routes(router, house, recordings, guard, running, plan.version);
    plan.server.log = [&house](const std::string& line) { house.say("HTTP: " + line); };
    Server server(plan.server, router, guard);
    running = &server;
    std::cout << server.url() << std::endl;
    house.run(signals);
    recordings.end();
    server.stop();
    return exit_done;
}

}  // namespace plendix
