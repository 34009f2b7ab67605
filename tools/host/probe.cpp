#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "host/diagnosis.h"
#include "host/plain_text.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint16_t camera_port = 69;
constexpr milliseconds repetition{700};  // a request may be lost on its way
constexpr std::size_t longest_message = 60;

enum Opcode { opcode_data = 3, opcode_ack = 4, opcode_error = 5, opcode_options = 6 };

std::string read_request() {
    std::string packet("\0\1", 2);
    for (const char* word : {"getreg?page=3;reg=122;", "netascii", "blksize", "1450"})
        packet += std::string(word) + '\0';
    return packet;
}

std::string acknowledgement(int block) {
    return {'\0', static_cast<char>(opcode_ack), '\0', static_cast<char>(block)};
}

/// One socket that asks one address and hears what becomes of it.
class Probe {
public:
    Probe(const std::string& address, in_addr host, milliseconds patience)
        : address_(address),
          peer_{AF_INET, htons(camera_port), host, {}},
          end_(Clock::now() + patience),
          socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const int on = 1;  // ICMP errors wait in the socket's error queue then, for any peer
        if (socket_ >= 0) setsockopt(socket_, SOL_IP, IP_RECVERR, &on, sizeof on);
    }
    ~Probe() {
        if (socket_ >= 0) close(socket_);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    std::string run() {
        if (socket_ < 0) return refused_by_system("open a socket", errno);
        Clock::time_point next_request = Clock::now();
        while (Clock::now() < end_) {
            if (!granted_ && Clock::now() >= next_request) {
                next_request += repetition;
                if (const auto verdict = send(request_)) return *verdict;
            }
            if (const auto verdict = wait(granted_ ? end_ : std::min(next_request, end_))) return *verdict;
        }
        return granted_ ? "something at " + address_ + " answers like a camera and stops: restart the camera"
                        : nobody();
    }

private:
    using Verdict = std::optional<std::string>;

    std::string nobody() const {
        return "nobody answers at " + address_ +
               ": is it switched on, is the address right, is the network reached? try 'ping " + address_ +
               '\'';
    }
    std::string no_camera(const std::string& what) const {
        return what + " at " + address_ + ", no camera: check the address";
    }

    std::string refused_by_system(const std::string& action, int error) const {
        switch (error) {
            case EMFILE:
            case ENFILE:
                return with_advice("create socket error " + std::to_string(error));
            case ECONNREFUSED:
                return "a machine answers at " + address_ +
                       ", but nothing listens on its UDP port 69: check the address";
            case EHOSTUNREACH:
                return nobody();
            case ENETUNREACH:
                return "no route to " + address_ + ": check the address and this machine's network";
            case EPERM:
                return "a firewall of this machine keeps us from " + address_ +
                       ": allow UDP to port 69 and from any port";
            default:
                return "cannot " + action + " for " + address_ + ": " + error_text(error);
        }
    }

    Verdict send(const std::string& packet) {
        const auto* const peer = reinterpret_cast<const sockaddr*>(&peer_);
        // An error that an earlier packet met is reported here, too.
        if (sendto(socket_, packet.data(), packet.size(), 0, peer, sizeof peer_) >= 0 || errno == EAGAIN)
            return {};
        return refused_by_system("send", errno);
    }

    Verdict wait(Clock::time_point until) {
        const auto rest = std::chrono::duration_cast<milliseconds>(until - Clock::now());
        pollfd waiting{socket_, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(std::max<milliseconds::rep>(rest.count(), 0)) + 1) <= 0)
            return {};
        if ((waiting.revents & POLLERR) != 0) return read_error();
        std::array<char, 65536> data{};
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        const ssize_t length = recvfrom(socket_, data.data(), data.size(), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&sender), &size);
        if (length < 0 || sender.sin_addr.s_addr != peer_.sin_addr.s_addr) return {};
        peer_.sin_port = sender.sin_port;
        return judge({data.data(), static_cast<std::size_t>(length)});
    }

    /// What a router or the machine itself said of our packet.
    Verdict read_error() const {
        std::array<char, 512> control{};
        msghdr message{};
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        if (recvmsg(socket_, &message, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return {};
        for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
            if (part->cmsg_level != SOL_IP || part->cmsg_type != IP_RECVERR) continue;
            const auto* error = reinterpret_cast<const sock_extended_err*>(CMSG_DATA(part));
            return refused_by_system("reach it", static_cast<int>(error->ee_errno));
        }
        return {};
    }

    Verdict judge(const std::string& packet) {
        if (packet == request_) return no_camera("our own request comes back: an echo service or a loop");
        const int opcode = packet.size() < 4 || packet[0] != 0 ? 0 : packet[1];
        switch (opcode) {
            case opcode_options:
                granted_ = true;
                return send(acknowledgement(0));
            case opcode_data:
                return granted_ ? judge_data(packet)
                                : no_camera("a TFTP server without the block size option answers");
            case opcode_error: {
                const std::string words = cut(printable(packet.substr(4).c_str()), longest_message);
                return no_camera("another TFTP server answers ('" + words + "')");
            }
            default:
                return no_camera("something sends " + std::to_string(packet.size()) +
                                 " bytes that mean nothing");
        }
    }

    Verdict judge_data(const std::string& packet) {
        send(acknowledgement(1));
        if (packet.size() != 6) return no_camera("another TFTP server sends a file");
        const auto byte = [&packet](std::size_t at) { return static_cast<unsigned char>(packet[at]); };
        const int model = byte(4) << 8 | byte(5);
        if (model == 0) return "a camera starts at " + address_ + ": wait until it knows its model";
        const std::string words = "Model " + std::to_string(model);
        if (model % 100 > 5) return "at " + address_ + ": " + with_advice(words + " is not supported");
        return "a camera answers at " + address_ + " (model " + std::to_string(model) +
               "): the driver tries it again within 10 s; see that no other recorder holds it";
    }

    std::string address_;
    sockaddr_in peer_;
    Clock::time_point end_;
    int socket_;
    bool granted_ = false;
    const std::string request_ = read_request();
};

}  // namespace

std::string diagnose(const std::string& address, std::chrono::milliseconds patience) {
    in_addr host{};
    if (inet_pton(AF_INET, address.c_str(), &host) != 1)
        return '\'' + printable(address) + "' is no IPv4 address: give four numbers, as in 192.168.1.20";
    return Probe(address, host, patience).run();
}

}  // namespace plendix
