// The network as it is, through libpcap. Where the command was built without it, the constructor says so.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "field/capture_file.h"

namespace plendix {

/// One thread.
class LiveCapture {
public:
    /// All UDP and ICMP from and to these addresses, on one interface or on "any". Throws Failure with a
    /// line that says what is missing: a right, an interface.
    LiveCapture(const std::string& interface, const std::vector<std::string>& addresses);
    ~LiveCapture();
    LiveCapture(const LiveCapture&) = delete;
    LiveCapture& operator=(const LiveCapture&) = delete;

    /// Returns when packets are there or a signal came, at the latest after this time.
    void wait(std::chrono::milliseconds longest) const;
    /// The next packet that is there; false when there is none. Throws Failure when the interface is gone.
    bool next(CapturedPacket& packet);

    /// So far; missed are those for which the kernel had no room.
    CaptureCounts counts() const;
    const std::string& filter() const { return filter_; }

private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
    std::string filter_;
};

/// "(udp or icmp) and (host 10.0.0.7 or host 10.0.0.8)"
std::string capture_filter(const std::vector<std::string>& addresses);

}  // namespace plendix
