// What an output has still to take: frames and events in the order in which they came.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <variant>

#include "host/output.h"

namespace plendix {

using Delivery = std::variant<FramePointer, Event>;

/// One for each output, bounded in bytes: an output that is too slow loses its own frames and
/// nobody else's. Any thread may push; the output's thread pops.
class OutputQueue : public Output {
public:
    /// Frames are lost while `limit_bytes` are waiting, events only 8 MiB later. With `linger` what
    /// comes may wait so long: the output is woken once for many frames, which costs less.
    explicit OutputQueue(std::size_t limit_bytes,
                         std::chrono::milliseconds linger = std::chrono::milliseconds(0));

    /// For an output that shows the present: of each camera one frame waits at most. It gives way to a
    /// key frame; any other that finds it there is lost.
    struct Latest {};
    explicit OutputQueue(Latest);

    /// Never waits. A frame that is lost takes those with it that cannot be decoded without it:
    /// the camera's next one is a key frame.
    void push(const FramePointer& frame) override;
    void push(const Event& event) override;

    /// Waits up to `patience`, where nothing is there.
    std::optional<Delivery> pop(std::chrono::milliseconds patience);

    /// Nothing more comes: `pop` does not wait any longer.
    void finish() override;
    bool finished() const;  // and nothing is left

    /// Frames of this camera (1 to 255) that were lost so far; 0: events.
    std::uint64_t lost(int camera) const;
    std::uint64_t lost() const;  // of all cameras

private:
    struct Loss {
        std::uint64_t total = 0;
        bool needs_key = false;
        bool waiting = false;  // kept where only the latest is wanted
    };

    bool room_for(const Frame& frame);
    void drop_waiting(int camera);
    void wake();
    bool enough() const;

    const std::size_t limit_bytes_;
    const std::chrono::milliseconds linger_;
    const bool latest_ = false;
    mutable std::mutex mutex_;
    std::condition_variable filled_;
    // Guarded by mutex_:
    std::deque<Delivery> waiting_;
    std::size_t waiting_bytes_ = 0;
    bool finished_ = false;
    std::array<Loss, 256> losses_{};
};

}  // namespace plendix
