// What a camera of a capture is known to hold in its registers, for requests that the capture has not:
// one that began in the middle of a session has no identification. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "field/replay_transfer.h"

namespace plendix {

class ReplayRegisters {
public:
    /// Begins with what was first answered. What never was is what a driver accepts that is to ask for
    /// such pictures.
    explicit ReplayRegisters(const std::vector<ReplayTransferPointer>& transfers);

    /// The camera has told so.
    void note(const ReplayTransfer& transfer);
    /// To read or to write a register: the answer.
    std::uint16_t answer(const link::FileName& name);

private:
    std::map<int, std::uint16_t> values_;
};

}  // namespace plendix
