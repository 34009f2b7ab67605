// A stream at a client's connection, which sleeps while the stream has nothing to give.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "http/bell.h"
#include "http/stream.h"

struct MHD_Connection;

namespace plendix {

/// The server's thread alone.
class StreamSeat {
public:
    using Log = std::function<void(const std::string& line)>;  // may be empty

    /// What it reads is added to `bytes`; why a stream broke goes to `log`.
    StreamSeat(std::shared_ptr<Stream> stream, MHD_Connection* connection, Bell& bell,
               std::atomic<std::uint64_t>& bytes, Log log);
    /// The stream is over, and never touches the connection again.
    ~StreamSeat();
    StreamSeat(const StreamSeat&) = delete;
    StreamSeat& operator=(const StreamSeat&) = delete;

    /// As the library wants it: a count, 0 while it sleeps, or one of its marks for the end.
    ssize_t read(std::uint8_t* to, std::size_t size);

    bool asleep() const;
    /// The connection is cut at its next turn, which comes at once.
    void cut();

private:
    bool fall_asleep();

    std::shared_ptr<Stream> stream_;
    MHD_Connection* connection_;
    Bell& bell_;
    std::atomic<std::uint64_t>& bytes_;
    Log log_;
    bool cut_ = false;
};

}  // namespace plendix
