#include "probe/prober.h"

#include <arpa/inet.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include "link/camera_socket.h"

namespace plendix {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t most_at_once = 256;
constexpr int most_per_turn = 16;  // datagrams of one address, so that none holds up the others
constexpr std::size_t longest_datagram = 65536;
constexpr milliseconds longest_wait{100};

bool out_of_descriptors(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/// One address that is being asked.
class Visit {
public:
    Visit(std::size_t index, std::uint32_t address, const ProbeWish& wish)
        : index_(index), host_(htonl(address)), dialog_(wish, Clock::now()) {
        open(1);
    }

    std::size_t index() const { return index_; }
    bool done() const { return dialog_.done(); }
    Clock::time_point deadline() const { return dialog_.deadline(); }
    const Finding& finding() const { return dialog_.finding(); }
    int descriptor() const { return socket_->descriptor(); }
    int socket_error() const { return socket_->error(); }

    void serve(short events, link::Bytes& buffer) {
        if ((events & POLLERR) != 0)
            if (const int error = socket_->take_error()) dialog_.fail(error, Clock::now());
        for (int i = 0; i < most_per_turn && (events & POLLIN) != 0 && !done(); ++i) {
            const auto received = socket_->receive(buffer);
            if (!received) break;
            dialog_.take(received->bytes, received->port, Clock::now());
            send();
        }
        if (!done() && Clock::now() >= deadline()) dialog_.tick(Clock::now());
        send();
    }

    void send() {
        while (const auto next = dialog_.outgoing()) {
            if (next->question != question_) open(next->question);
            const int error =
                socket_->error() != 0 ? socket_->error() : socket_->send(next->bytes, next->port);
            if (error != 0) dialog_.fail(error, Clock::now());
        }
    }

private:
    void open(int question) {
        socket_.reset();  // its descriptor is used again
        socket_.emplace(in_addr{host_});
        question_ = question;
    }

    std::size_t index_;
    std::uint32_t host_;  // network byte order
    ProbeDialog dialog_;
    std::optional<link::CameraSocket> socket_;
    int question_ = 0;
};

class Prober {
public:
    Prober(const std::vector<std::uint32_t>& addresses, const ProbeWish& wish)
        : addresses_(addresses), wish_(wish), findings_(addresses.size()), buffer_(longest_datagram) {
        progress_.all = addresses.size();
    }

    std::vector<Finding> run(const KeepGoing& keep_going) {
        while (next_ < addresses_.size() || !visits_.empty()) {
            begin();
            wait();
            end();
            if (!keep_going(progress_)) break;
        }
        return std::move(findings_);
    }

private:
    void begin() {
        while (next_ < addresses_.size() && visits_.size() < most_at_once_) {
            auto visit = std::make_unique<Visit>(next_, addresses_[next_], wish_);
            if (out_of_descriptors(visit->socket_error()) && !visits_.empty()) {
                most_at_once_ = visits_.size();
                return;
            }
            visit->send();
            visits_.push_back(std::move(visit));
            ++next_;
        }
    }

    void wait() {
        auto until = Clock::now() + longest_wait;
        waiting_.clear();
        for (const auto& visit : visits_) {
            until = visit->done() ? Clock::now() : std::min(until, visit->deadline());
            waiting_.push_back({visit->descriptor(), POLLIN, 0});
        }
        const auto rest = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
        poll(waiting_.data(), waiting_.size(), static_cast<int>(std::max<milliseconds::rep>(rest, 0)));
        for (std::size_t i = 0; i < visits_.size(); ++i)
            visits_[i]->serve(waiting_[i].revents, buffer_);
    }

    void end() {
        const auto done = std::stable_partition(visits_.begin(), visits_.end(),
                                                [](const auto& visit) { return !visit->done(); });
        for (auto visit = done; visit != visits_.end(); ++visit) {
            Finding& finding = findings_[(*visit)->index()];
            finding = (*visit)->finding();
            ++progress_.done;
            if (finding.what == What::camera) ++progress_.cameras;
        }
        visits_.erase(done, visits_.end());
    }

    const std::vector<std::uint32_t>& addresses_;
    const ProbeWish& wish_;
    std::vector<Finding> findings_;
    link::Bytes buffer_;
    std::size_t next_ = 0;
    std::size_t most_at_once_ = most_at_once;
    std::vector<std::unique_ptr<Visit>> visits_;
    std::vector<pollfd> waiting_;  // in the order of visits_
    ProbeProgress progress_;
};

}  // namespace

std::vector<Finding> probe_addresses(const std::vector<std::uint32_t>& addresses, const ProbeWish& wish,
                                     const KeepGoing& keep_going) {
    return Prober(addresses, wish).run(keep_going);
}

}  // namespace plendix
