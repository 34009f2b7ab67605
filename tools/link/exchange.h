// One transfer of one pseudo-file as the side sees it that asks: told what arrives, it tells what goes
// back, and what was odd about it. No socket and no clock; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "link/packet.h"

namespace plendix::link {

/// What no camera answers with.
enum class Oddity {
    none,
    echo,         // the request itself
    meaningless,  // no packet that a server sends
    error,        // an ERROR packet
    no_options,   // data without an option acknowledgement
    block_size,   // an option acknowledgement that grants no block size, or 512
    too_long      // more than was to be expected
};

struct OddAnswer {
    Oddity kind = Oddity::none;
    std::size_t size = 0;  // bytes: of the datagram, or of what a data block or an ERROR packet carries
    Bytes first;           // of these, at most `most_shown`
    static constexpr std::size_t most_shown = 100;
};

/// A stranger is judged by everything that it sends. Of a camera that has answered before, data without
/// an option acknowledgement is a late repetition, and what is no packet comes from somebody else.
enum class Trust { stranger, camera };

class Exchange {
public:
    /// `most_bytes` of full blocks are taken; whoever sends more is told to stop.
    Exchange(const std::string& name, std::size_t most_bytes, Trust trust);

    const Bytes& request() const { return request_; }

    /// A datagram from the address that was asked. What goes back to the port that it came from; empty:
    /// nothing. From the option acknowledgement on, that port is the transfer's, and others are not heard.
    Bytes take(View datagram, std::uint16_t port);

    bool granted() const { return block_size_ != 0; }
    bool complete() const { return complete_; }
    /// By an oddity behind which nothing more can come.
    bool broken() const { return broken_; }
    /// Counts blocks that came, repetitions too.
    std::size_t blocks() const { return blocks_; }
    /// The short block at the end. Requires complete().
    const Bytes& last() const { return last_; }
    std::size_t size() const { return bytes_; }  // of all blocks
    const OddAnswer& odd() const { return odd_; }

private:
    Bytes take_options(const Packet& packet, std::uint16_t port);
    Bytes take_data(const Packet& packet);
    void note(Oddity kind, View what);
    Bytes stop(Oddity kind, View what);

    Bytes request_;
    std::size_t most_bytes_;
    Trust trust_;
    std::uint16_t port_ = 0;
    std::size_t block_size_ = 0;
    std::size_t blocks_ = 0, bytes_ = 0;
    bool complete_ = false, broken_ = false;
    Bytes last_;
    OddAnswer odd_;
};

}  // namespace plendix::link
