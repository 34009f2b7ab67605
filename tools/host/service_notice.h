// Tells the manager that started this process as a service how it fares, in systemd's notification
// protocol. Nothing happens where nobody wants to know, and no error matters.
#pragma once

#include <chrono>
#include <string>

namespace plendix {

/// One thread uses it.
class ServiceNotice {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Reads the environment: NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID.
    ServiceNotice();
    ~ServiceNotice();
    ServiceNotice(const ServiceNotice&) = delete;
    ServiceNotice& operator=(const ServiceNotice&) = delete;

    /// The service works, with what `systemctl status` shows of it: one line.
    void ready(const std::string& status);
    /// What it shows from now on; as often as one likes.
    void status(const std::string& text);
    void reloading();
    void reloaded() { ready(status_); }
    void stopping();

    /// Feeds the watchdog, a third of its time apart, where the driver made a pass since it was
    /// last fed. For every turn of a loop.
    void alive_if(bool driver_passed, Time now);
    /// Within which the driver has to pass; 0 where no watchdog waits.
    std::chrono::microseconds watchdog() const { return watchdog_; }

private:
    bool send(const std::string& text, int flags) const;

    std::string address_;  // bytes of a sockaddr_un's path; an abstract one begins with 0
    int socket_ = -1;
    std::chrono::microseconds watchdog_{0};
    std::string status_;  // as told last
    bool passed_ = false;
    Time fed_{};
};

}  // namespace plendix
