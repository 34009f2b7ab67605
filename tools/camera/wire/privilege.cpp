#include "camera/wire/privilege.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace plendix::camera {

namespace {

bool write_file(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    return written;
}

bool bring_loopback_up() {
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (any < 0) return false;
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = ioctl(any, SIOCSIFFLAGS, &request) == 0;
    close(any);
    return up;
}

}  // namespace

bool can_bind_port_69() {
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (probe < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(69);
    const int result = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const bool allowed = result == 0 || errno == EADDRINUSE;
    close(probe);
    return allowed;
}

bool enter_private_network() {
    if (can_bind_port_69()) return true;
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    // Without CAP_SETGID outside, gid_map may be written only once setgroups is denied.
    return write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", "0 " + user + " 1") &&
           write_file("/proc/self/gid_map", "0 " + group + " 1") && bring_loopback_up() && can_bind_port_69();
}

}  // namespace plendix::camera
