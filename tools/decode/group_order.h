// Whether H.264 pictures follow each other: each of a group needs those before it, back to its key frame.
// One thread.
#pragma once

#include "decode/raw_transfer.h"

namespace plendix {

class GroupOrder {
public:
    /// Why the picture cannot follow those before it, or empty: then it does. A key frame always can.
    std::string take(const RawTransfer& transfer);
    /// The next picture begins a group.
    void end() { begun_ = false; }

private:
    bool begun_ = false;
    unsigned number_ = 0;  // of the last picture, modulo 16
};

}  // namespace plendix
