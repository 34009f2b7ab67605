// What can go wrong with a simulated camera, and how that is written.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace plendix::camera {

enum class FaultKind {
    loss,         // a datagram of the camera is lost
    ack_loss,     // an acknowledgement of the client is lost
    duplicate,    // a datagram is sent twice
    reorder,      // a block of a picture comes behind the next one
    delay,        // a datagram, and all behind it, comes later
    corrupt,      // bytes of a picture are changed
    truncate,     // a block of a picture loses its end
    garbage,      // random bytes are sent to the client
    foreign,      // random bytes from another address
    wrong_block,  // a block of a picture has a number that does not exist
    no_oack,      // the blksize option is not acknowledged
    oack_512,     // it is granted with 512 bytes
    error,        // a request is answered with a TFTP ERROR
    silent,       // the camera stops answering for a time
    reboot,       // it forgets its registers and is silent for a time
    mac_change,   // it reports another MAC address
};
constexpr std::size_t fault_kinds = 16;

/// The word for it in options and scenarios.
const char* fault_name(FaultKind kind);

/// How often, or that it happens once: to the next datagram or request it can happen to, or at
/// once where a camera as a whole is meant (silent, reboot, mac-change).
struct Fault {
    FaultKind kind = FaultKind::loss;
    bool once = false;
    double rate = 0;  // otherwise: 0 to 1, per datagram or request; 0 ends it
    std::chrono::milliseconds time{0};
};

/// `kind` is a word, `value` empty, a rate ("0.5%"), a time ("200ms", "15s", "2m") or a rate and
/// a time ("1%/200ms"). Both throw UsageError, which names the text and says what would be right.
Fault parse_fault(const std::string& kind, const std::string& value);
std::vector<Fault> parse_faults(const std::string& list);  // "loss=1%,reorder=0.5%"

/// "15s" and so on; false when the text is no time from 0 to a day.
bool parse_time(const std::string& text, std::chrono::milliseconds& time);

}  // namespace plendix::camera
