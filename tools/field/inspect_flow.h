// One transfer, followed datagram by datagram as the driver goes through it: what it was sent, what it
// acknowledged, and where it was over. Pure functions.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "field/transfer.h"

namespace plendix {

/// 0 where a clock was set back: a file may tell any times.
inline std::int64_t nanoseconds_between(std::int64_t since, std::int64_t until) {
    if (until <= since) return 0;
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    return since < 0 && until > most + since ? most : until - since;
}

/// At most a day.
inline std::uint32_t whole_milliseconds(std::int64_t ns) {
    return static_cast<std::uint32_t>(std::min<std::int64_t>(ns / 1'000'000, 86'400'000));
}

constexpr std::int64_t second_in_ns = 1'000'000'000;
constexpr std::int64_t prompt_ns = second_in_ns;         // a camera that is there answers within it
constexpr std::int64_t patience_ns = 10 * second_in_ns;  // of the driver

/// Datagrams that are none of the transfer's.
struct Strays {
    std::uint32_t count = 0;
    std::int64_t first_ns = 0;
    std::uint32_t address = 0;  // of the last one's sender
};

/// How long things took, in nanoseconds.
struct Timing {
    std::int64_t answer = -1;          // from the request to the first answer; -1: none came
    std::vector<std::int64_t> blocks;  // from an acknowledgement to the next block, where the camera waited
    std::int64_t slowest = 0;          // of all answers
    std::int64_t slowest_at = 0;       // when that one came
};

struct Flow {
    struct Block {
        std::int64_t time_ns = 0;  // when it came first
        bool zeros = false;        // fill it up
        bool cut = false;          // whether they do is not in the capture
    };

    std::map<std::uint16_t, Block> blocks;  // that came in front of the end
    std::set<std::uint16_t> acknowledged;   // as captured; number 0 is the option acknowledgement
    std::set<std::uint16_t> behind_end;
    const Step* end = nullptr;  // the short block; steps are the transfer's
    std::uint16_t end_number = 0;
    const Step* closing = nullptr;  // so short that the driver closes its port
    std::size_t block_size = 0;     // 0: none that the driver takes was granted

    bool options = false, data_without_options = false, said_so = false;
    const Step* error = nullptr;
    std::uint16_t error_code = 0;
    std::string error_words;
    std::uint32_t too_late_ms = 0;  // an answer came when the client had given up, after this time

    bool answered = false;  // anything that is a packet
    bool ahead = false;     // the camera sent a block before the one in front was acknowledged
    bool repeated = false;  // the last acknowledged block came again, and nothing behind it
    std::int64_t options_ns = 0, since_ns = 0, end_ns = 0;
    Strays garbage, strangers;
    Timing timing;

    bool taken(std::uint16_t number) const { return acknowledged.count(number) != 0; }
    std::uint32_t unseen_acknowledgements = 0;
    /// Datagrams that were there, as others show, but are not in the capture.
    std::uint32_t unseen() const;
};

Flow follow(const Transfer& transfer);

}  // namespace plendix
