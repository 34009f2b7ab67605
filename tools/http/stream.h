// A response that goes on: the server asks for bytes whenever the client can take some.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "http/shared_bytes.h"

namespace plendix {

/// What a stream has to give just now.
struct StreamRead {
    enum class State { bytes, nothing_now, end };
    State state = State::nothing_now;
    std::size_t size = 0;  // of state `bytes`: 1 or more
};

/// One for each client. The server asks in its own thread and holds the stream until the response is
/// over; whoever feeds it keeps a shared or weak pointer.
class Stream {
public:
    Stream() = default;
    virtual ~Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Up to `size` bytes to `to`; never waits. After "nothing now" the server asks again when somebody
    /// has called wake(), even while read() ran. Where it throws, the connection is cut: the client is not
    /// to take for whole what is not.
    virtual StreamRead read(std::uint8_t* to, std::size_t size) = 0;

    /// The client has gone, or all was sent: nobody asks any more. The server's thread, once.
    virtual void over() {}

    /// There is something to give. Any thread, at any time, as often as it likes; it costs little. Not
    /// with a lock held that read() takes.
    void wake();

private:
    friend class StreamSeat;

    std::mutex mutex_;
    // Guarded by mutex_:
    bool woken_ = false;
    std::function<void()> resume_;  // set while the server waits for wake()
};

/// A stream that is made of whole buffers, as pictures are: each is copied once, straight into what
/// goes to the socket.
class PieceStream : public Stream {
public:
    StreamRead read(std::uint8_t* to, std::size_t size) final;

protected:
    struct Pieces {
        std::vector<SharedBytes> bytes;  // none: nothing now
        bool end = false;                // after these
    };
    /// Called when all before was taken: what is dropped for a slow client is decided as late as can be.
    virtual Pieces next() = 0;

private:
    bool refill();

    std::deque<SharedBytes> waiting_;
    std::size_t taken_ = 0;  // bytes of the first
    bool end_ = false;
};

}  // namespace plendix
