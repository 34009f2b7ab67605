// Counters in the text format of Prometheus.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "record/record_totals.h"

namespace plendix {

class CameraBoard;
class LiveHub;

/// What does not belong to one camera.
struct ProcessNumbers {
    std::string version;
    double seconds_since_call = 0;  // since the driver's worker called
    std::uint64_t lost_documents = 0;
    std::uint64_t requests = 0;     // of HTTP
    std::uint64_t refused = 0;      // of these: who asked may not
    std::uint64_t bytes = 0;        // sent
    std::uint64_t connections = 0;  // now
    std::uint64_t streams = 0;      // now
    std::uint64_t thumbnails = 0;
    double thumbnail_seconds = 0;
    std::optional<RecorderNumbers> recording;  // where this process records
};

/// Names and units as Prometheus has them: base units, totals that only grow.
std::string metrics_text(const CameraBoard& board, const LiveHub& hub, const ProcessNumbers& numbers);

}  // namespace plendix
