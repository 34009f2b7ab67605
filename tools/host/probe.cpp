// Asks one address for its model, and waits for what comes of it.
#include <arpa/inet.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "host/answer_words.h"
#include "host/diagnosis.h"
#include "host/plain_text.h"
#include "link/camera_socket.h"
#include "link/driver_rules.h"
#include "link/file_name.h"
#include "link/inquiry.h"
#include "usage.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using End = link::Inquiry::End;

constexpr int model_register = 122;
constexpr std::size_t value_size = 2;    // bytes of a register
constexpr milliseconds repetition{700};  // a request may be lost on its way
constexpr std::size_t longest_datagram = 65536;

/// One socket that asks one address and hears what becomes of it.
class Probe {
public:
    Probe(std::string address, in_addr host, milliseconds patience)
        : address_(std::move(address)),
          socket_(host),
          inquiry_(link::register_name(model_register), value_size, link::Trust::stranger,
                   {repetition, patience}, Clock::now()),
          buffer_(longest_datagram) {}

    std::string run() {
        if (socket_.descriptor() < 0) return refused_by_system("open a socket", socket_.error());
        for (send(); inquiry_.end() == End::none; send()) {
            const bool error = wait();
            if (const int said = error ? socket_.take_error() : 0) inquiry_.fail(said);
            if (const auto received = socket_.receive(buffer_))
                inquiry_.take(received->bytes, received->port, Clock::now());
            inquiry_.tick(Clock::now());
        }
        return verdict();
    }

private:
    void send() {
        while (const auto next = inquiry_.outgoing())
            if (const int error = socket_.send(next->bytes, next->port)) inquiry_.fail(error);
    }

    std::string verdict() const {
        switch (inquiry_.end()) {
            case End::answered:
                return judge(inquiry_.exchange().last());
            case End::odd:
                return no_camera(answer_words(inquiry_.odd()));
            case End::stopped:
                return "something at " + address_ + " answers like a camera and stops: restart the camera";
            case End::failed:
                return refused_by_system("reach it", inquiry_.error());
            case End::none:
            case End::silent:
                break;
        }
        return nobody();
    }

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
            case EACCES:
                return address_ + " is a broadcast address: give that of the camera";
            case EPERM:
                return "a firewall of this machine keeps us from " + address_ +
                       ": allow UDP to port 69 and from any port";
            default:
                return "cannot " + action + " for " + address_ + ": " + error_text(error);
        }
    }

    /// Until something comes, or something is due. True when it is an error.
    bool wait() const {
        const auto rest = std::chrono::duration_cast<milliseconds>(inquiry_.deadline() - Clock::now());
        pollfd waiting{socket_.descriptor(), POLLIN, 0};
        const auto limit = static_cast<int>(std::clamp<milliseconds::rep>(rest.count(), 0, 60'000)) + 1;
        return poll(&waiting, 1, limit) > 0 && (waiting.revents & POLLERR) != 0;
    }

    std::string judge(const link::Bytes& value) const {
        if (value.size() != value_size) return no_camera("another TFTP server sends a file");
        const int model = value[0] << 8 | value[1];
        if (model == 0) return "a camera starts at " + address_ + ": wait until it knows its model";
        const std::string words = "Model " + std::to_string(model);
        if (!driver_takes_model(static_cast<std::uint16_t>(model)))
            return "at " + address_ + ": " + with_advice(words + " is not supported");
        return "a camera answers at " + address_ + " (model " + std::to_string(model) +
               "): the driver tries it again within 10 s; see that no other recorder holds it";
    }

    std::string address_;
    link::CameraSocket socket_;
    link::Inquiry inquiry_;
    link::Bytes buffer_;
};

}  // namespace

std::string diagnose(const std::string& address, std::chrono::milliseconds patience) {
    in_addr host{};
    if (inet_pton(AF_INET, address.c_str(), &host) != 1)
        return '\'' + printable(address) + "' is no IPv4 address: give four numbers, as in 192.168.1.20";
    return Probe(address, host, patience).run();
}

}  // namespace plendix
