#include "check/check_run.h"

#include <iostream>

#include "check/check_report.h"
#include "host/diagnosis.h"
#include "host/signals.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::chrono::milliseconds second_look{1'500};

}  // namespace

int check_camera(const CheckWish& wish) {
    const StopSignals signals;
    check::CheckOptions options;
    options.address = wish.address;
    options.relay = wish.relay;
    options.patience = wish.patience;
    options.stopped = [&signals] { return signals.requested(); };
    const check::CheckReport report = check::examine(options);
    if (!report.heard && !signals.requested())
        std::cerr << "plendix: " << diagnose(wish.address, second_look) << '\n';
    if (wish.json)
        print_report_json(std::cout, report);
    else if (report.heard)
        print_report(std::cout, report);
    if (!std::cout.flush()) throw Failure("cannot write to standard output");
    return report.clean() && !signals.requested() ? exit_done : exit_failed;
}

}  // namespace plendix
