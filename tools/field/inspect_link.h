// One client and one camera in a capture: what was asked, answered and lost, and what an interrupted
// transfer was, as what followed shows. One thread.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "field/delays.h"
#include "field/inspect_ids.h"
#include "field/inspect_incidents.h"
#include "field/inspect_verdict.h"

namespace plendix {

/// What is counted of a link.
struct LinkCounts {
    std::uint64_t requests = 0, answered = 0;  // of all kinds; answered: to the end
    std::uint64_t reads = 0, writes = 0;       // of registers
    std::uint64_t pictures = 0, whole = 0;
    std::array<std::uint64_t, losses> lost{};  // pictures, by cause
    std::uint64_t unknown = 0;                 // pictures of which the capture has not enough: no losses
    std::uint64_t either = 0;  // losses that are on the way to us or to the camera: the likelier was taken
    std::uint64_t confirmed_late = 0;        // of ours late: the kernel's counter says the same
    std::uint64_t bytes = 0, largest = 0;    // of whole pictures, without trailers
    std::int64_t first_ns = 0, last_ns = 0;  // of whole pictures
    Delays answers, blocks;
    std::uint64_t all_lost() const;
};

/// What the links of a capture have in common.
struct CaptureState {
    Incidents incidents;
    std::uint32_t ways = 0, acknowledgements = 0;  // losses of which it is clear where they were
    struct Drop {
        std::int64_t time_ns;
        std::uint16_t port;
    };
    std::deque<Drop> drops;  // of sockets, of the last time
};

class Link {
public:
    Link(std::uint32_t camera, std::uint32_t client, CaptureState& capture)
        : camera_(camera), client_(client), capture_(capture) {}

    /// The link's next transfer that is over.
    void add(const Transfer& transfer, const Verdict& verdict, const IdLedger& ids);
    /// The request that a stranger got in the camera's place.
    void add_astray(const Transfer& transfer);
    /// Decides what is open by what has followed until now, or at the end of the capture.
    void settle(std::int64_t now_ns, const IdLedger& ids, bool end);
    /// `settle` has nothing to do until something is added, or the capture ends.
    bool settled() const;
    /// Decides the rest by what was found of all links. Once, at the end.
    void conclude();

    std::uint32_t camera() const { return camera_; }
    std::uint32_t client() const { return client_; }
    const LinkCounts& counts() const { return counts_; }

private:
    /// A port that the client had, and what came of its first request.
    struct Connection {
        std::uint16_t port = 0;
        std::int64_t begin_ns = 0, last_ns = 0;
        std::int64_t answer_ns = -1;  // how long that took; -1: nothing came
        bool identified = false, pictures = false, told = false;
        bool written = false;  // settings, before the first picture
    };
    /// A transfer that was silent from some moment on.
    struct Open {
        std::int64_t begin_ns, since_ns;
        std::uint16_t port;
        bool picture, repeated;
        Why why;
        std::uint32_t block;
    };

    void count(const Transfer& transfer, const Verdict& verdict);
    void note_connection(const Transfer& transfer, const Verdict& verdict);
    void note_oddities(const Transfer& transfer, const Verdict& verdict);
    void take_whole(const Transfer& transfer, const Verdict& verdict);
    void take_lost(const Transfer& transfer, const Verdict& verdict, const IdLedger& ids);
    void release_held(const Transfer& transfer);
    void lose(Incident incident, bool picture);
    void decide(const Open& open, std::int64_t now_ns, const IdLedger& ids);
    void decide_alive(const Open& open, const Connection& next, const IdLedger& ids, Incident incident);
    void forget_connection();
    bool restarted(const Connection& connection) const;
    void tell_connections(std::int64_t now_ns, bool end);
    bool restarted_after(const Open& open) const;
    const Connection* next_connection(const Open& open) const;
    bool dropped_by_kernel(std::uint16_t port, std::int64_t since_ns, std::int64_t until_ns) const;
    Incident incident(std::int64_t time_ns, Incident::Kind kind) const;

    const std::uint32_t camera_, client_;
    CaptureState& capture_;
    LinkCounts counts_;
    std::deque<Connection> connections_;  // in order of their first requests, which are not known in order
    std::deque<Open> open_;
    std::optional<Incident> held_;  // a loss that the client's next request confirms, or not
    std::uint16_t held_port_ = 0;
    std::vector<Incident> last_blocks_;  // lost in front of the trailer or with it
    std::uint64_t waiting_ = 0;          // losses that a camera which waits for each block has either way
    std::uint32_t ways_ = 0, acknowledgements_ = 0;  // losses of which it is clear where they were
    bool streamed_ = false;  // pictures were asked for on a connection that is forgotten
    bool goes_on_ = false;   // the camera does not wait for a block that was lost
};

}  // namespace plendix
