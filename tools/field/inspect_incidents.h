// What went wrong, moment by moment: kept up to a bound, put into order, and folded where the same thing
// happens again and again. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "field/inspect_verdict.h"

namespace plendix {

struct Incident {
    enum class Kind {
        lost_picture,    // cause, why
        failed_request,  // of a register, the same
        reconnected,     // from port `last` to port `block`
        restarted,       // the camera has other registers than it had
        strangers,       // `block` datagrams; `last` is the address
        garbage,         // `block` datagrams of the camera that are no packets
        other_mac,       // words
        other_format,    // words
        capture_gap,     // `block` datagrams are not in the capture
        slow_answer,     // `block` milliseconds
        socket_drops     // `block` datagrams; `last` is the port
    };

    std::int64_t time_ns = 0;
    std::uint32_t camera = 0, client = 0;  // addresses
    Kind kind = Kind::lost_picture;
    Loss cause = Loss::lost_on_way;
    Why why = Why::none;
    std::uint32_t block = 0, last = 0;
    std::string words;  // whoever sent them may have sent anything
};

/// The same thing, with some that came soon behind it.
struct Folded {
    Incident first;
    std::uint64_t count = 1;
    std::int64_t until_ns = 0;
};

class Incidents {
public:
    void add(Incident incident);
    std::uint64_t count() const { return count_; }
    /// Those that found room, in order of time.
    std::vector<Incident> sorted() const;
    /// The same, but what comes within half a minute of its like is one with it.
    std::vector<Folded> folded() const;

private:
    std::vector<Incident> kept_;
    std::uint64_t count_ = 0;
};

/// One line, fit for a terminal: "picture lost on the way: block 3 of 12 did not come".
std::string words_of(const Incident& incident);
/// "lost picture", for programs.
const char* kind_name(Incident::Kind kind);

}  // namespace plendix
