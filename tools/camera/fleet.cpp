#include "camera/fleet.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "camera/camera.h"
#include "usage.h"

namespace plendix::camera {

namespace {

constexpr std::uint64_t stop_mark = ~std::uint64_t{0};

/// What an epoll event carries: the camera's index, and in bit 0 which of its sockets.
std::uint64_t mark(std::size_t index, bool transfer) {
    return index * 2 + (transfer ? 1 : 0);
}

void watch(int epoll, int descriptor, std::uint64_t data) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = data;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw Failure(std::string("cannot watch a socket: ") + std::strerror(errno));
}

/// Signals of the process are for the threads of the program, not for the camera's.
void block_signals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

/// Closes its descriptor unless released: a constructor that throws leaves nothing open.
struct Descriptor {
    int value;
    ~Descriptor() {
        if (value >= 0) close(value);
    }
    int release() {
        const int released = value;
        value = -1;
        return released;
    }
};

}  // namespace

Fleet::Fleet(std::vector<Config> cameras, Log log, bool verbose) {
    Descriptor epoll{epoll_create1(EPOLL_CLOEXEC)};
    Descriptor wake{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    if (epoll.value < 0 || wake.value < 0)
        throw Failure(std::string("cannot wait for sockets: ") + std::strerror(errno));
    watch(epoll.value, wake.value, stop_mark);
    for (const Config& config : cameras) {
        cameras_.push_back(std::make_unique<Camera>(config, log, verbose));
        watch(epoll.value, cameras_.back()->request_descriptor(), mark(cameras_.size() - 1, false));
        watch(epoll.value, cameras_.back()->transfer_descriptor(), mark(cameras_.size() - 1, true));
    }
    epoll_ = epoll.release();
    wake_ = wake.release();
}

Fleet::~Fleet() {
    stop();
    close(wake_);
    close(epoll_);
}

void Fleet::start() {
    if (thread_.joinable()) return;
    std::uint64_t stale = 0;
    [[maybe_unused]] const auto drained = read(wake_, &stale, sizeof stale);
    thread_ = std::thread([this] { run(); });
}

void Fleet::stop() {
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
    thread_.join();
}

void Fleet::run() {
    block_signals();
    std::array<epoll_event, 64> events;
    for (;;) {
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const std::uint64_t data = events[static_cast<std::size_t>(i)].data.u64;
            if (data == stop_mark) return;
            Camera& camera = *cameras_[data / 2];
            if (data % 2 == 0)
                camera.serve_requests();
            else
                camera.serve_transfers();
        }
    }
}

Counters Fleet::counters(std::size_t i) const {
    return cameras_.at(i)->state().counters();
}
std::vector<std::string> Fleet::requested(std::size_t i) const {
    return cameras_.at(i)->state().requested();
}

std::uint16_t Fleet::get_register(std::size_t i, int number) const {
    return cameras_.at(i)->state().read(number);
}
void Fleet::set_register(std::size_t i, int number, std::uint16_t value) {
    cameras_.at(i)->state().set(number, value);
}

void Fleet::set_trigger(std::size_t i, bool level) {
    cameras_.at(i)->state().set_trigger(level);
}
int Fleet::relay(std::size_t i) const {
    return cameras_.at(i)->state().relay();
}
void Fleet::set_silent(std::size_t i, bool silent) {
    cameras_.at(i)->state().set_silent(silent);
}

void Fleet::keep_originals(std::size_t i) {
    cameras_.at(i)->state().keep_originals();
}
std::vector<std::vector<std::uint8_t>> Fleet::originals(std::size_t i) const {
    return cameras_.at(i)->state().originals();
}

}  // namespace plendix::camera
