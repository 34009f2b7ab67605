// Somebody who watches: pictures on their way to one connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

#include "host/frame.h"

namespace plendix {

/// Bounded: a viewer who does not read loses pictures of his own, and an H.264 picture is never given
/// without those that it builds on. The hub offers, the connection's thread takes.
class Viewer {
public:
    struct Limits {
        std::size_t pictures = 4;
        std::size_t bytes = 8U << 20U;  // one picture always fits
    };

    explicit Viewer(Limits limits) : limits_(limits) {}

    /// Called, by the thread that offers, when there is something to take that was not there before.
    void on_arrival(std::function<void()> wake);
    /// False: it is lost to him.
    bool offer(const FramePointer& frame);
    /// Nothing more comes: a recording was played to its end.
    void finish();
    /// And all of it was taken.
    bool finished() const;
    /// Null when nothing is there.
    FramePointer take();
    /// Pictures that can be taken now.
    std::size_t waiting() const;
    /// Pictures that were offered and never given.
    std::uint64_t lost() const;

private:
    bool has_room(const Frame& frame) const;

    const Limits limits_;
    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::function<void()> wake_;
    std::deque<FramePointer> waiting_;
    std::size_t waiting_bytes_ = 0;
    bool needs_key_ = true;
    bool begun_ = false;
    bool finished_ = false;
    std::uint64_t lost_ = 0;
};

}  // namespace plendix
