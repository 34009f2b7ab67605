#include "field/live_capture.h"

namespace plendix {

std::string capture_filter(const std::vector<std::string>& addresses) {
    std::string hosts;
    for (const std::string& address : addresses)
        hosts += (hosts.empty() ? "host " : " or host ") + address;
    return "(udp or icmp) and (" + hosts + ")";
}

}  // namespace plendix
