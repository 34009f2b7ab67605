// The end of a recording: its files looked at, the table, the stills.
#pragma once

#include <vector>

#include "host/camera_state.h"
#include "record/recorder.h"

namespace plendix {

struct RecordingPlan;
class OutputQueue;
class StopSignals;

/// Checks the files where the plan says so, until a second signal ends that, and prints the table and
/// the files to standard output. Returns the exit code.
int conclude(const RecordingPlan& plan, const std::vector<CameraState>& cameras, const Recorder& recorder,
             const OutputQueue& queue, const StopSignals& signals);

}  // namespace plendix
