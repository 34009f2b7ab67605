// One socket from which requests go to the camera, and what comes back to it. What no camera should send
// is noted and left out. One thread.
#pragma once

#include <netinet/in.h>

#include <optional>

#include "check/examination.h"
#include "link/packet.h"

namespace plendix::check {

struct Datagram {
    Clock::time_point at;
    link::Bytes bytes;
    link::Packet packet;  // points into `bytes`
    Datagram(Clock::time_point arrival, link::Bytes content);
    Datagram(Datagram&&) = default;
    Datagram& operator=(Datagram&&) = default;
};

class Conversation {
public:
    /// Throws Failure where the machine has no socket left.
    explicit Conversation(Examination& examination);
    ~Conversation();
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// To port 69. `words` is what the report calls it.
    void request(const link::Bytes& packet, const std::string& words);
    /// To where the request's first answer came from.
    void acknowledge(std::uint16_t block);

    /// The next OACK, DATA or ERROR of the camera's; nothing when none comes until then.
    std::optional<Datagram> next(Clock::time_point until);
    /// What came behind a finished transfer. To be asked when its datagrams have had their time.
    void look_behind();

    /// The transfer has ended with this block, which may come again.
    void finished(std::uint16_t last, const link::Bytes& content);
    /// What belongs to the finished transfer is noted, and true.
    bool belongs_behind(const Datagram& datagram);

    /// Data of a transfer that was left in the middle may cross the next request.
    void abandon() { abandoned_ = true; }
    bool abandoned() const { return abandoned_; }

    /// The last packet sent, as the report has it.
    const std::string& sent() const { return sent_; }
    Clock::time_point sent_at() const { return sent_at_; }
    Examination& examination() const { return examination_; }

private:
    std::optional<Datagram> receive();
    bool from_camera(const sockaddr_in& sender, const link::Bytes& bytes);
    void send(const link::Bytes& packet, std::uint16_t port);

    Examination& examination_;
    const int socket_;
    in_addr camera_{};
    std::uint16_t port_ = 0;  // of the transfer, host order; 0 before the first answer
    bool settled_ = false;    // by an option acknowledgement
    bool abandoned_ = false;
    std::string words_, sent_;
    Clock::time_point sent_at_{};
    bool finished_ = false;
    std::uint16_t last_ = 0;
    link::Bytes last_block_;
};

}  // namespace plendix::check
