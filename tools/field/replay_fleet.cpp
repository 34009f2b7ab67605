#include "field/replay_fleet.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>

#include "usage.h"

namespace plendix {
namespace {

constexpr std::uint64_t wake_mark = ~std::uint64_t{0}, timer_mark = wake_mark - 1;
constexpr std::size_t sockets_each = 3;

void watch(const Descriptor& epoll, int descriptor, std::uint64_t mark) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = mark;
    if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw Failure("cannot watch a socket: " + error_text(errno));
}

void drain(const Descriptor& descriptor) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto drained = read(descriptor.get(), &count, sizeof count);
}

}  // namespace

ReplayFleet::ReplayFleet(const ReplayCapture& capture, std::uint32_t first, const ReplayOptions& options,
                         const ReplayLog& log)
    : epoll_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (!epoll_ || !wake_ || !timer_) throw Failure("cannot wait for sockets: " + error_text(errno));
    watch(epoll_, wake_.get(), wake_mark);
    watch(epoll_, timer_.get(), timer_mark);
    for (const CapturedCamera& camera : capture.cameras()) {
        const std::size_t index = cameras_.size();
        const auto address = first + static_cast<std::uint32_t>(index);
        cameras_.push_back(std::make_unique<ReplayCamera>(capture, camera, address, options, log));
        due_.push_back(ReplaySession::never);
        if (camera.pictures > 0) unfinished_.insert(index);
        pictures_ = pictures_ || camera.pictures > 0;
        std::uint64_t mark = index * sockets_each;
        for (const int descriptor : cameras_[index]->descriptors())
            watch(epoll_, descriptor, mark++);
    }
}

ReplayFleet::~ReplayFleet() {
    stop();
}

void ReplayFleet::start() {
    if (thread_.joinable()) return;
    stop_ = false;
    thread_ = std::thread([this] { run(); });
}

void ReplayFleet::stop() {
    if (!thread_.joinable()) return;
    stop_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
    thread_.join();
}

void ReplayFleet::run() {
    sigset_t all;  // signals are for the threads of the program
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::array<epoll_event, 64> events;
    while (!stop_) {
        arm_timer();
        const int count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
        const Time now = ReplayClock::now();
        for (int i = 0; i < count; ++i)
            serve(events[static_cast<std::size_t>(i)].data.u64, now);
        run_due(now);
    }
}

void ReplayFleet::serve(std::uint64_t mark, Time now) {
    if (mark == wake_mark) return drain(wake_);
    if (mark == timer_mark) {
        armed_ = ReplaySession::never;  // it has gone off
        return drain(timer_);
    }
    if (!pictures_) finished_ = now.time_since_epoch().count();
    const std::size_t camera = mark / sockets_each;
    cameras_[camera]->serve(mark % sockets_each, now);
    cameras_[camera]->run(now);
    plan(camera);
}

void ReplayFleet::run_due(Time now) {
    while (!order_.empty() && order_.begin()->first <= now) {
        const std::size_t camera = order_.begin()->second;
        cameras_[camera]->run(now);
        plan(camera);
    }
}

/// After anything that a camera did.
void ReplayFleet::plan(std::size_t camera) {
    if (due_[camera] != ReplaySession::never) order_.erase({due_[camera], camera});
    due_[camera] = cameras_[camera]->due();
    if (due_[camera] != ReplaySession::never) order_.emplace(due_[camera], camera);
    if (unfinished_.empty() || !cameras_[camera]->over()) return;
    unfinished_.erase(camera);
    if (unfinished_.empty()) finished_ = ReplayClock::now().time_since_epoch().count();
}

std::optional<ReplayFleet::Time> ReplayFleet::finished() const {
    const Time::rep since_epoch = finished_;
    return since_epoch == 0 ? std::nullopt : std::optional(Time(Time::duration(since_epoch)));
}

void ReplayFleet::arm_timer() {
    const Time next = order_.empty() ? ReplaySession::never : order_.begin()->first;
    if (next == armed_) return;
    armed_ = next;
    itimerspec setting{};  // all zero: off
    if (next != ReplaySession::never) {
        const std::chrono::nanoseconds since = next.time_since_epoch();
        setting.it_value.tv_sec = static_cast<std::time_t>(since.count() / 1'000'000'000);
        setting.it_value.tv_nsec = static_cast<long>(since.count() % 1'000'000'000);
    }
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace plendix
