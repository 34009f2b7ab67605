// A camera of a capture on an address of this machine: its sockets, and the transfers that it plays. One
// thread; the caller waits for sockets and time.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "field/replay_capture.h"
#include "field/replay_script.h"
#include "field/replay_session.h"
#include "field/server_socket.h"

namespace plendix {

using ReplayLog = std::function<void(const std::string& line)>;

struct ReplayOptions {
    bool delays = true;
    bool loop = false;  // from the last picture to the first
};

/// Of one camera.
struct ReplayCounts {
    std::size_t played = 0;     // pictures
    std::size_t skipped = 0;    // pictures in front of a key frame that was needed
    std::size_t rounds = 0;     // how often it began again
    std::size_t registers = 0;  // answered as the capture has it
    std::size_t repeated = 0;   // answered as the time before
    std::size_t made_up = 0;    // registers that the capture has not
    std::size_t failures = 0;   // of registers, in place of a picture's request
    std::size_t unknown = 0;    // requests that nothing answers to, and what was no request
    std::size_t after_end = 0;  // requests after the last picture
};

class ReplayCamera {
public:
    using Time = ReplaySession::Time;

    /// Binds its sockets. Throws Failure. The capture outlives it.
    ReplayCamera(const ReplayCapture& capture, const CapturedCamera& camera, std::uint32_t address,
                 const ReplayOptions& options, ReplayLog log);

    /// To be waited for: `serve` takes the index.
    std::array<int, 3> descriptors() const;
    void serve(std::size_t socket, Time now);
    /// When `run` has something to send; ReplaySession::never while it waits for a client.
    Time due() const;
    void run(Time now);

    /// All pictures were played, as far as somebody took them; it is silent from now on.
    bool over() const;
    ReplayCounts counts() const;

private:
    enum Sockets : std::size_t { requests, transfers, stranger };

    void take(std::size_t socket, Time now);
    void request(const link::ReadRequest& request, const Endpoint& client, Time now);
    void begin(const Endpoint& client, ReplayTransferPointer transfer, Time now);
    Time time_of_request(const ReplayTransfer& picture, Time now);
    void count(const ReplayChoice& choice);
    void tell(const ReplayChoice& choice, const std::string& asked);
    void tell_once(const std::string& text);
    void make_room();
    void transmit(const ReplayTransfer& transfer, const ReplaySend& send, const Endpoint& client);

    const ReplayCapture& capture_;
    const ReplayOptions options_;
    const std::string address_;
    const ReplayLog log_;
    const std::array<ServerSocket, 3> sockets_;
    ReplayScript script_;
    std::map<Endpoint, ReplaySession> sessions_;  // by client
    Endpoint last_client_;                        // that asked for a picture
    std::int64_t last_begin_ns_ = 0;              // of that picture's answer, in the capture
    Time last_begin_{};                           // and here
    ReplayCounts counts_;
    std::set<std::string> told_;
    link::Bytes buffer_;
};

}  // namespace plendix
