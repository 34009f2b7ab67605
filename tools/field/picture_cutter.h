// --no-pictures: leaves of a capture what tells how the transfers went, and nothing that is seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "field/capture_file.h"
#include "field/datagram.h"

namespace plendix {

/// What is not known to be harmless counts as a part of a picture: a transfer whose request or option
/// acknowledgement was not seen, later fragments, anything that is no TFTP. One thread.
class PictureCutter {
public:
    /// Kept whole are requests, option acknowledgements and refusals of up to 512 bytes, a register's
    /// value and a picture's trailer; of any other datagram, the headers with the TFTP block number.
    /// `original_size` stays.
    void cut(CapturedPacket& packet);

private:
    struct Transfer {
        bool registers = false;
        std::size_t block_size = 0;  // 0: not told yet
    };
    std::size_t kept_of(const Datagram& datagram);
    std::size_t kept_of_block(const Endpoint& client, std::size_t size) const;

    std::map<Endpoint, Transfer> transfers_;  // by client, which has one at a time
};

}  // namespace plendix
