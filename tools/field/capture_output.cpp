#include "field/capture_output.h"

namespace plendix {

void WholeOutput::write(const CapturedPacket& packet, Time) {
    writer_.write(packet);
    if (kept_.packets++ == 0) kept_.first_ns = packet.time_ns;
    kept_.last_ns = packet.time_ns;
}

CaptureOutput::Kept WholeOutput::kept() const {
    Kept kept = kept_;
    kept.bytes = writer_.size();
    return kept;
}

}  // namespace plendix
