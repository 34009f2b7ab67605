// One answer on its way to one client: blocks sent in step with their acknowledgements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "camera/packet.h"

namespace plendix::camera {

/// What a request is answered with. A picture's payload is padded with zeros to whole blocks,
/// and its trailer is the short block that ends the transfer.
struct Answer {
    Bytes payload;
    Bytes trailer;  // empty: not a picture
    bool key = false;
    bool picture() const { return !trailer.empty(); }
};

class Transfer {
public:
    /// Throws Refused when the answer does not fit the block size. With `options`, the client
    /// acknowledges block 0 before block 1 is due.
    Transfer(std::shared_ptr<const Answer> answer, std::size_t block_size, bool options);

    const Answer& answer() const { return *answer_; }
    /// Whether the ACK is the awaited one; a repeated ACK is not, so nothing is sent twice.
    bool accept(std::uint16_t block);
    /// The packet that is due: the option acknowledgement, then one DATA packet after the other,
    /// then nothing when the last block was acknowledged.
    std::optional<Bytes> due() const;
    bool awaits_options() const { return due_ == 0; }
    bool at_last() const { return due_ == last_; }

private:
    std::shared_ptr<const Answer> answer_;
    std::size_t block_size_;
    std::uint32_t due_;   // number of the next block, from 1
    std::uint32_t last_;  // number of the short block
};

}  // namespace plendix::camera
