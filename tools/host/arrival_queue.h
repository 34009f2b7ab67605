// What the plug-in hands over, kept until the recording thread takes it.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

struct _EventParmsIn;

namespace plendix {

/// The copy of one event record and its data.
struct Arrival {
    std::uint32_t kind = 0;       // EventKind...
    std::uint32_t data_type = 0;  // DataType...
    int camera = 0;               // device number, 0 for documents
    std::int64_t time_ms = 0;     // UTC since 1970: the frame's own time, for documents that of arrival
    bool key = false;
    bool recording = false;  // the driver says that a recording mark is in force
    bool after_gap = false;  // frames of this camera were refused since its last arrival
    std::vector<std::uint8_t> data;
};

/// Queue with one producer (the thread on which the plug-in sends) and one consumer, bounded
/// in bytes so that a slow disk cannot eat the machine's memory.
class ArrivalQueue {
public:
    /// Frames are refused while `limit_bytes` are waiting, documents only 8 MiB later.
    explicit ArrivalQueue(std::size_t limit_bytes);

    /// Copies the event; never waits for the consumer. False when it was refused and counted.
    bool push(const _EventParmsIn& event);

    /// Waits up to `patience` for an arrival.
    std::optional<Arrival> pop(std::chrono::milliseconds patience);

    /// Frames of this camera (0 to 255) refused so far; camera 0 counts the documents.
    std::uint64_t refused(int camera) const;

private:
    struct Refusals {
        std::uint64_t total = 0;
        bool since_last = false;
    };

    const std::size_t limit_bytes_;
    mutable std::mutex mutex_;
    std::condition_variable filled_;
    // Guarded by mutex_:
    std::deque<Arrival> waiting_;
    std::size_t waiting_bytes_ = 0;
    std::array<Refusals, 256> refusals_{};
};

}  // namespace plendix
