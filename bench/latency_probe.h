// Clocks between the plug-in and the C library, for the host that measures latencies; nothing in the
// host that measures CPU.
#pragma once

#include <string>

#ifdef PLENDIX_LATENCY
/// To be called in the callback of a frame.
void probe_frame();
/// What was seen since the last report, as members of a JSON object behind others.
std::string probe_report();
#else
inline void probe_frame() {}
inline std::string probe_report() {
    return {};
}
#endif
