// What the identification numbers of a camera's IP packets (RFC 791) tell: simple network stacks count
// them up, so a gap is a datagram that was sent and did not come, and no gap is none that was sent. Packets
// that must not be fragmented are left out: their numbers may be anything (RFC 6864). One thread.
#pragma once

#include <cstdint>
#include <deque>

namespace plendix {

class IdLedger {
public:
    /// The next datagram of the camera, whoever it is for.
    void add(std::uint16_t id, std::int64_t time_ns);

    enum class Answer { unknown, nothing_sent, sent };
    /// Whether the camera sent a datagram that did not come, between those that came last before the first
    /// moment and last before the second. Asked within a minute or two.
    Answer between(std::int64_t since_ns, std::int64_t until_ns) const;

private:
    struct Gap {
        std::int64_t behind_ns;        // of the datagram behind it
        std::uint16_t first, missing;  // numbers
    };
    bool counts_up() const;
    bool fills(std::uint16_t id);

    std::deque<Gap> gaps_;  // of the last time
    std::uint64_t steps_ = 0, small_steps_ = 0;
    std::uint16_t last_ = 0;
    bool any_ = false;
};

}  // namespace plendix
