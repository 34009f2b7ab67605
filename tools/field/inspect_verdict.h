// What became of one transfer, as the driver must have seen it: its datagrams are followed by the
// driver's own rules. Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "field/inspect_flow.h"
#include "link/picture.h"

namespace plendix {

/// Why a picture that was asked for could not be delivered.
enum class Loss {
    never_sent,   // the camera did not send it as the protocol has it
    lost_on_way,  // a datagram of the camera did not come, or came behind the end
    ack_lost,     // the camera went on waiting for an acknowledgement of ours
    ours_late,    // all came to this machine, but the driver did not take it
    stalled,      // the camera stopped answering
    refused,      // the camera did not grant the request
    withheld,     // came whole, but no decoder would take it
    disturbed,    // a stranger's datagram was taken for the camera's
    given_up      // the client went away in the midst of it
};
constexpr std::size_t losses = 9;
/// "lost on the way"
const char* loss_name(Loss loss);

/// What shows it. `block` and `last` of a verdict are its numbers.
enum class Why {
    none,
    number_not_there,    // block `block` does not exist in a picture of `last`
    cut_short,           // block `block` has fewer bytes than a trailer
    left_out,            // block `block` of `last`: the camera's datagrams are counted, and none is missing
    closed_by_size,      // a datagram of `block` bytes
    missing,             // block `block` of `last`
    behind_the_end,      // block `block` of `last` came later
    nothing_came,        // neither option acknowledgement nor anything else
    nothing_behind,      // nothing came behind the acknowledgement of `block`
    nothing_at_the_end,  // the same, and what was to come is the trailer, as far as can be seen
    not_taken,           // block `block` was not acknowledged
    too_late,            // after `block` milliseconds
    restarted,           // its registers had to be written again
    no_next_answer,      // and nothing to the next request
    error_packet,        // code `block`
    no_options,          // data came, but no option acknowledgement
    size_of_512,         // the option acknowledgement grants 512, or nothing
    complaint,           // the trailer's
    too_large,           // `last` blocks
    went_on,             // another request within a second, from a new port
    next_request,        // another request from the same port
    said_so,             // an ERROR packet of its own
    went_away,           // nothing came of the client any more
    led_astray           // the request went to the stranger
};

struct Verdict {
    enum class Outcome {
        whole,
        lost,
        unseen,  // whether it came whole is not in the capture, which missed some of it
        silent   // nothing more came; what it was shows in what follows
    };
    Outcome outcome = Outcome::silent;
    Loss cause = Loss::lost_on_way;
    Why why = Why::none;
    std::uint32_t block = 0, last = 0;
    std::string words;  // of an ERROR packet or a complaint; whoever sent them may have sent anything

    std::int64_t end_ns = 0;                    // the last step that counts
    std::int64_t since_ns = 0;                  // the client's last datagram
    std::int64_t before_ns = 0, behind_ns = 0;  // a block that is missing should have come between these

    std::size_t bytes = 0;  // payload in front of the trailer
    std::optional<link::Trailer> trailer;

    Timing timing;
    Strays garbage, strangers;
    bool answered = false;     // anything of the camera that is a packet
    bool went_on = false;      // the camera did not wait for a block that was lost
    bool repeated = false;     // the camera repeated the block that was acknowledged last
    std::uint32_t unseen = 0;  // datagrams that the capture missed, as others show
};

Verdict judge(const Transfer& transfer);

}  // namespace plendix
