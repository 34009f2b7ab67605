// Where a server listens. Pure functions.
#pragma once

#include <sys/socket.h>

#include <string>

namespace plendix {

struct ListenAddress {
    std::string host = "127.0.0.1";  // a numeric address, without brackets
    int port = 8069;                 // 0: any that is free
};

/// As 127.0.0.1:8069, [::1]:8069, 0.0.0.0 (with the usual port) or 8069 (of this machine alone). Throws
/// UsageError.
ListenAddress parse_listen_address(const std::string& text);

bool is_loopback(const ListenAddress& address);
bool is_any(const ListenAddress& address);  // 0.0.0.0 or ::

/// As a URL has it: a version 6 address in brackets.
std::string host_text(const std::string& host);

/// A numeric address; an IPv4 address that came over IPv6 in its own form.
std::string peer_text(const sockaddr* address);

}  // namespace plendix
