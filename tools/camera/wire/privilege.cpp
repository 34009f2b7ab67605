#include "camera/wire/privilege.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "camera/wire/udp.h"

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

/// 0 when UDP port 69 of this address, in network order, can be had now.
int bind_error(std::uint32_t address) {
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (probe < 0) return errno;
    sockaddr_in port{};
    port.sin_family = AF_INET;
    port.sin_addr.s_addr = address;
    port.sin_port = htons(69);
    const int error = bind(probe, reinterpret_cast<const sockaddr*>(&port), sizeof port) == 0 ? 0 : errno;
    close(probe);
    return error;
}

bool available(const std::vector<std::string>& addresses) {
    if (addresses.empty()) {
        const int error = bind_error(htonl(INADDR_LOOPBACK));
        return error == 0 || error == EADDRINUSE;
    }
    return std::all_of(addresses.begin(), addresses.end(),
                       [](const std::string& address) { return bind_error(parse_address(address)) == 0; });
}

/// A network of its own is root's to make. Others become root of a world of their own first.
bool unshare_network() {
    if (unshare(CLONE_NEWNET) == 0) return true;
    const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    // Without CAP_SETGID outside, gid_map may be written only once setgroups is denied.
    return write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", "0 " + user + " 1") &&
           write_file("/proc/self/gid_map", "0 " + group + " 1");
}

}  // namespace

bool enter_private_network(const std::vector<std::string>& addresses) {
    return available(addresses) || (unshare_network() && bring_loopback_up() && available(addresses));
}

}  // namespace plendix::camera
