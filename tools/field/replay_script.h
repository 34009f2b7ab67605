// What a camera of a capture plays next, by what it is asked for. Pure logic, without clock or network.
// One thread.
//
// Pictures come in the order of the capture, whatever is asked of them: when a driver asks for a key frame
// is a matter of its clock. A register's answers come in their order, name by name. A register transfer
// that failed in the capture, after which the driver had to connect again, divides the script: it
// comes behind the same picture as then, if need be in place of the next one's, and what was answered
// before is not answered behind it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "field/replay_registers.h"
#include "field/replay_transfer.h"

namespace plendix {

struct ReplayChoice {
    enum class Kind {
        picture,
        registers,  // as the capture has it
        repeated,   // a register's last answer again
        made_up,    // a register that the capture has not
        failure,    // a register transfer that failed, in place of a picture
        unknown,    // neither picture nor register, and not in the capture
        none        // no picture is left
    };
    Kind kind = Kind::none;
    ReplayTransferPointer transfer;  // nothing where the camera keeps silent
    std::size_t skipped = 0;         // pictures in front of a key frame that a new client needs
};

class ReplayScript {
public:
    /// The transfers in the order in which they began. With `loop` the first picture, or the first key
    /// frame, comes behind the last.
    ReplayScript(std::vector<ReplayTransferPointer> transfers, bool loop);

    /// `options`: the client asks for a block size. `anew`: it is not the client of the last picture.
    ReplayChoice choose(const std::string& request, bool options, bool anew);

    std::size_t pictures() const { return pictures_.size(); }
    /// All pictures were chosen.
    bool over() const { return !loop_ && !pictures_.empty() && next_picture_ == pictures_.size(); }
    std::size_t rounds() const { return rounds_; }

private:
    static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

    struct Named {
        std::vector<std::size_t> places;
        std::size_t next = 0;  // in `places`
        ReplayTransferPointer last;
    };

    ReplayChoice choose_picture(const link::FileName& name, bool anew);
    ReplayChoice choose_register(const link::FileName& name, const std::string& key, bool options);
    ReplayChoice choose_other(const std::string& key);
    ReplayChoice play_failure(ReplayChoice::Kind kind);
    ReplayChoice play(ReplayChoice::Kind kind, Named& named);
    void enter_section(Named& named) const;
    bool begin_again();
    std::size_t key_frame_from(std::size_t picture) const;
    std::size_t failure() const;
    std::size_t place_of_next_picture() const;

    const std::vector<ReplayTransferPointer> transfers_;
    const bool loop_;
    ReplayRegisters registers_;
    std::vector<std::size_t> pictures_;  // places in transfers_
    std::vector<std::size_t> failures_;  // the same: register transfers
    std::map<std::string, Named> named_;
    std::size_t next_picture_ = 0, next_failure_ = 0;
    std::size_t section_ = 0;  // place behind the last failure
    std::size_t rounds_ = 0;
    long ssn_ = -1;  // of the last picture that was asked for
};

}  // namespace plendix
