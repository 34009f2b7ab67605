// In place of live_capture.cpp where there is no libpcap.
#include "field/live_capture.h"
#include "usage.h"

namespace plendix {

struct LiveCapture::Handle {};

LiveCapture::LiveCapture(const std::string& interface, const std::vector<std::string>& addresses) {
    throw Failure("this command was built without libpcap: capture with tcpdump -i " + interface +
                  " -w FILE '" + capture_filter(addresses) + "'");
}

LiveCapture::~LiveCapture() = default;
void LiveCapture::wait(std::chrono::milliseconds) const {}
bool LiveCapture::next(CapturedPacket&) {
    return false;
}
CaptureCounts LiveCapture::counts() const {
    return {};
}

}  // namespace plendix
