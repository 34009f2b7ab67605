// Standard output as a way for data: its reader may be slow, or go away.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>

#include "host/descriptor.h"
#include "host/picture_format.h"

namespace plendix {

/// One thread writes; any may ask or end it.
class Outlet {
public:
    /// Keeps the descriptor of its own that it makes of this one: standard output may lead elsewhere then.
    explicit Outlet(int descriptor);

    /// Returns when everything is written. False when the reader has gone, or has not taken it within
    /// the time that `end_within` left. Throws Failure when it is a file that takes no more.
    bool write(const Pieces& pieces);

    bool reader_gone() const;
    /// A reader that does not read is waited for no longer than this.
    void end_within(std::chrono::milliseconds time);
    /// The same from when `asked` says so, which the thread that writes looks at while it waits. To be set
    /// before it writes; for where no other thread could end it.
    void end_when(std::function<bool()> asked, std::chrono::milliseconds time);

private:
    using Clock = std::chrono::steady_clock;

    bool write_some(const Piece& piece, std::size_t& written);
    bool wait_for_room();

    Descriptor output_;
    std::size_t most_bytes_;  // that can be written at once without waiting
    std::function<bool()> asked_;
    std::chrono::milliseconds left_{};  // for the reader, once it is asked
    std::atomic<Clock::rep> end_{Clock::time_point::max().time_since_epoch().count()};
};

}  // namespace plendix
