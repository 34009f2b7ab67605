#include "camera/fleet.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "camera/camera.h"
#include "camera/picture/gallery.h"
#include "usage.h"

namespace plendix::camera {

namespace {

constexpr std::uint64_t wake_mark = ~std::uint64_t{0}, timer_mark = wake_mark - 1;
// Two large H.264 streams, while they are coded, and many pictures.
constexpr std::size_t gallery_bytes = 128U << 20U;
constexpr const char* stranger_address = "127.254.254.254";  // of no camera

/// What an epoll event carries: the camera's index, and in bit 0 which of its sockets.
std::uint64_t mark(std::size_t index, bool transfer) {
    return index * 2 + (transfer ? 1 : 0);
}

void watch(int epoll, int descriptor, std::uint64_t data) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = data;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw Failure("cannot watch a socket: " + error_text(errno));
}

void drain(int descriptor) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto drained = read(descriptor, &count, sizeof count);
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

/// Null when each camera draws for itself.
std::unique_ptr<Gallery> make_gallery(const std::vector<Config>& cameras, const Behaviour& behaviour) {
    if (behaviour.scene.empty()) {
        if (cameras.size() <= most_live_cameras) return nullptr;
        return std::make_unique<Gallery>(generated_loop(), gallery_bytes);
    }
    Size largest{16, 16};
    for (const Config& camera : cameras) {
        largest.width = std::max(largest.width, static_cast<int>(camera.sensor_width));
        largest.height = std::max(largest.height, static_cast<int>(camera.sensor_height));
    }
    return std::make_unique<Gallery>(file_loop(behaviour.scene, largest), gallery_bytes);
}

}  // namespace

Fleet::Fleet(const std::vector<Config>& cameras, Log log, bool verbose)
    : Fleet(cameras, Behaviour{}, std::move(log), verbose) {}

Fleet::Fleet(const std::vector<Config>& cameras, const Behaviour& behaviour, Log log, bool verbose)
    : behaviour_(behaviour),
      gallery_(make_gallery(cameras, behaviour)),
      stranger_(std::make_unique<UdpSocket>(stranger_address, std::uint16_t{0})) {
    Descriptor epoll{epoll_create1(EPOLL_CLOEXEC)};
    Descriptor wake{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    Descriptor timer{timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
    if (epoll.value < 0 || wake.value < 0 || timer.value < 0)
        throw Failure("cannot wait for sockets: " + error_text(errno));
    watch(epoll.value, wake.value, wake_mark);
    watch(epoll.value, timer.value, timer_mark);
    const Surroundings surroundings{behaviour_,     agenda_,         [this] { catch_up(); },
                                    gallery_.get(), stranger_.get(), std::move(log),
                                    verbose,        cameras.size()};
    for (const Config& config : cameras) {
        const std::size_t index = cameras_.size();
        cameras_.push_back(std::make_unique<Camera>(config, index, surroundings));
        watch(epoll.value, cameras_[index]->request_descriptor(), mark(index, false));
        watch(epoll.value, cameras_[index]->transfer_descriptor(), mark(index, true));
    }
    epoll_ = epoll.release();
    wake_ = wake.release();
    timer_ = timer.release();
    for (std::size_t i = 0; i < size(); ++i)
        for (const Fault& fault : behaviour_.faults)
            post([this, i, fault] { cameras_[i]->inject(fault); });
}

Fleet::~Fleet() {
    stop();
    close(timer_);
    close(wake_);
    close(epoll_);
}

void Fleet::start() {
    if (thread_.joinable()) return;
    stop_ = false;
    plan_start();
    thread_ = std::thread([this] { run(); });
}

/// What the clock brings, counted from now.
void Fleet::plan_start() {
    agenda_ = {};
    const auto now = Clock::now();
    for (const ScenarioStep& step : behaviour_.scenario)
        agenda_.at(now + step.at, [this, &step] { cameras_.at(step.camera)->inject(step.fault); });
    if (behaviour_.trigger_period.count() > 0)
        agenda_.at(now + behaviour_.trigger_period, [this] { toggle_triggers(true); });
}

void Fleet::toggle_triggers(bool level) {
    for (const auto& camera : cameras_)
        camera->set_trigger(level);
    agenda_.at(Clock::now() + behaviour_.trigger_period, [this, level] { toggle_triggers(!level); });
}

void Fleet::stop() {
    if (!thread_.joinable()) return;
    post([this] { stop_ = true; });
    thread_.join();
}

void Fleet::post(std::function<void()> action) {
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(action));
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
}

/// What was posted before a datagram was sent takes effect before it is served.
void Fleet::catch_up() {
    std::vector<std::function<void()>> actions;
    {
        const std::lock_guard lock(mutex_);
        actions.swap(posted_);
    }
    for (const auto& action : actions)
        action();
    agenda_.run(Clock::now());
}

/// Lets the timer end the next wait when the agenda wants it.
void Fleet::arm_timer() {
    itimerspec setting{};  // all zero: off
    if (const auto next = agenda_.next(); next != Agenda::never) {
        const auto since =
            std::max<std::chrono::nanoseconds>(next.time_since_epoch(), std::chrono::nanoseconds(1));
        setting.it_value.tv_sec = static_cast<std::time_t>(since.count() / 1'000'000'000);
        setting.it_value.tv_nsec = static_cast<long>(since.count() % 1'000'000'000);
    }
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr);
}

void Fleet::run() {
    block_signals();
    std::array<epoll_event, 64> events;
    auto armed = Agenda::never;
    while (!stop_) {
        if (agenda_.next() != armed) arm_timer();
        armed = agenda_.next();
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), -1);
        catch_up();
        for (int i = 0; i < count; ++i) {
            const std::uint64_t data = events[static_cast<std::size_t>(i)].data.u64;
            if (data == wake_mark || data == timer_mark) {
                if (data == timer_mark) armed = Agenda::never;  // it has gone off
                drain(data == timer_mark ? timer_ : wake_);
                catch_up();
                continue;
            }
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

void Fleet::set_trigger(std::size_t i, bool level) {
    cameras_.at(i)->state().set_trigger(level);
}
int Fleet::relay(std::size_t i) const {
    return cameras_.at(i)->state().relay();
}
void Fleet::inject(std::size_t i, const Fault& fault) {
    post([camera = cameras_.at(i).get(), fault] { camera->inject(fault); });
}

void Fleet::keep_originals(std::size_t i) {
    cameras_.at(i)->state().keep_originals();
}
std::vector<std::vector<std::uint8_t>> Fleet::originals(std::size_t i) const {
    return cameras_.at(i)->state().originals();
}

}  // namespace plendix::camera
