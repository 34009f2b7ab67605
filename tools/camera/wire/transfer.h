// One answer on its way to one client: blocks sent in step with their acknowledgements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "camera/wire/packet.h"

namespace plendix::camera {

/// What a request is answered with: the bytes of `data` from `begin` on. A picture's are padded
/// with zeros to whole blocks, and its trailer is the short block that ends the transfer.
struct Answer {
    std::shared_ptr<const Bytes> data;  // of a picture: the file as its codec wrote it
    std::size_t begin = 0;
    Bytes trailer;  // empty: not a picture
    bool key = false;
    bool picture() const { return !trailer.empty(); }
    std::size_t size() const { return data->size() - begin; }
};

/// An option acknowledgement, which has number 0, or a DATA packet.
struct Packet {
    Bytes bytes;
    std::uint32_t number = 0;
    bool last = false;
    bool data() const { return number > 0; }
};

class Transfer {
public:
    /// Throws Refused when the answer does not fit the block size. With `options`, the client
    /// acknowledges block 0 before block 1 is due. Up to `window` blocks go out unacknowledged.
    Transfer(Answer answer, std::size_t block_size, bool options, unsigned window);

    const Answer& answer() const { return answer_; }
    /// Whether the ACK is of a block under way; a repeated ACK is not, so nothing is sent twice.
    bool accept(std::uint32_t block);
    /// Whether the window has room for the next packet.
    bool due() const;
    /// The next packet. Requires that it is due.
    Packet take();
    /// Of the blocks under way the one sent last.
    bool newest(std::uint32_t block) const { return block + 1 == next_; }
    std::uint32_t last() const { return last_; }
    bool sent() const { return next_ > last_; }
    bool finished() const { return awaited_ > last_; }

private:
    Bytes block(std::uint32_t number) const;

    Answer answer_;
    std::size_t block_size_;
    std::uint32_t window_;
    std::uint32_t next_;     // number of the next packet to send
    std::uint32_t awaited_;  // number of the first that is not acknowledged
    std::uint32_t last_;     // number of the short block
};

}  // namespace plendix::camera
