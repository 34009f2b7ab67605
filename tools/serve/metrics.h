// Counters in the text format of Prometheus.
#pragma once

#include <cstdint>
#include <string>

namespace plendix {

class CameraBoard;
class LiveHub;

/// What does not belong to one camera.
struct ProcessNumbers {
    std::string version;
    double seconds_since_call = 0;  // since the driver's worker called
    std::uint64_t lost_documents = 0;
    std::uint64_t connections = 0;  // of HTTP, now
    std::uint64_t requests = 0;
};

/// Names and units as Prometheus has them: base units, totals that only grow.
std::string metrics_text(const CameraBoard& board, const LiveHub& hub, const ProcessNumbers& numbers);

}  // namespace plendix
