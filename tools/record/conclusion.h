// The end of a recording: its files looked at, the table, the stills.
#pragma once

#include <chrono>
#include <vector>

#include "host/camera_state.h"
#include "record/recorder.h"

namespace plendix {

struct RecordingPlan;
class OutputQueue;
class StopSignals;

/// When and how a recording came to its end.
struct Ending {
    int signals = 0;                                   // that had asked for it; 0: its time was over
    std::chrono::steady_clock::time_point deadline{};  // of all that is not asked for in so many words
};

/// Asks about cameras that sent nothing and makes stills, but not for a service; checks the files where
/// the plan says so, until another signal ends that; and prints the table and the files to standard
/// output, while a signal ends the process. Returns the exit code.
int conclude(const RecordingPlan& plan, const std::vector<CameraState>& cameras, const Recorder& recorder,
             const OutputQueue& queue, StopSignals& signals, const Ending& ending);

}  // namespace plendix
