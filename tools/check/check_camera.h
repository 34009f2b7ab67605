// The rules of the camera protocol one by one, put to a camera: for those who build one, or a simulator.
#pragma once

#include "check/examination.h"
#include "check/register_rules.h"

namespace plendix::check {

struct CheckReport {
    std::string address;
    bool heard = false;  // anything at all
    Identity identity;
    link::Area sensor;
    bool jpeg = false, h264 = false;  // are served
    Findings findings;
    std::chrono::duration<double> took{};

    /// It is a camera that keeps all rules.
    bool clean() const { return heard && findings.count(Verdict::fail) == 0; }
};

/// Blocks for as long as the check takes, at most the budget, some patience and 10 s for each register
/// that is put back. Registers that are written hold their former values afterwards, except 79 and 25, which
/// the driver writes at each connection; the relay is switched back. Any thread, one at a time in a process.
/// Throws Failure where the machine refuses.
CheckReport examine(const CheckOptions& options);

}  // namespace plendix::check
