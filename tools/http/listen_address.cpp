#include "http/listen_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cstring>

#include "usage.h"

namespace plendix {
namespace {

constexpr int highest_port = 65535;

bool is_version_4(const std::string& host) {
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

bool is_version_6(const std::string& host) {
    in6_addr address{};
    return inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

UsageError unusable(const std::string& text) {
    return UsageError("--listen '" + text +
                      "' is no address to listen at: give a numeric one with a port, as 127.0.0.1:8069");
}

int port_of(const std::string& digits, const std::string& text) {
    const bool good =
        !digits.empty() && digits.size() <= 5 && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!good || std::stoi(digits) > highest_port) throw unusable(text);
    return std::stoi(digits);
}

}  // namespace

ListenAddress parse_listen_address(const std::string& text) {
    ListenAddress address;
    if (text.find('\0') != std::string::npos)
        throw unusable(text.substr(0, text.find('\0')));  // inet_pton ends there
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        address.port = port_of(text, text);
        return address;
    }
    const bool bracketed = !text.empty() && text[0] == '[';
    const bool bare = is_version_6(text);
    const std::size_t end = bracketed ? text.find(']') : bare ? text.size() : text.find(':');
    if (bracketed && end == std::string::npos) throw unusable(text);
    address.host = bracketed ? text.substr(1, end - 1) : text.substr(0, end);
    const std::size_t after = bracketed ? end + 1 : end;
    if (after < text.size()) {
        if (text[after] != ':') throw unusable(text);
        address.port = port_of(text.substr(after + 1), text);
    }
    const bool fits = bracketed ? is_version_6(address.host) : bare || is_version_4(address.host);
    if (!fits) throw unusable(text);
    return address;
}

bool is_loopback(const ListenAddress& address) {
    in_addr four{};
    if (inet_pton(AF_INET, address.host.c_str(), &four) == 1) return ntohl(four.s_addr) >> 24U == 127;
    in6_addr six{};
    return inet_pton(AF_INET6, address.host.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

bool is_any(const ListenAddress& address) {
    in_addr four{};
    if (inet_pton(AF_INET, address.host.c_str(), &four) == 1) return four.s_addr == 0;
    in6_addr six{};
    return inet_pton(AF_INET6, address.host.c_str(), &six) == 1 && IN6_IS_ADDR_UNSPECIFIED(&six);
}

std::string host_text(const std::string& host) {
    return is_version_6(host) ? "[" + host + "]" : host;
}

std::string peer_text(const sockaddr* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address->sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, address, sizeof four);
        inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
    } else if (address->sa_family == AF_INET6) {
        sockaddr_in6 six{};
        std::memcpy(&six, address, sizeof six);
        const bool mapped = IN6_IS_ADDR_V4MAPPED(&six.sin6_addr);
        const auto* bytes = six.sin6_addr.s6_addr;
        inet_ntop(mapped ? AF_INET : AF_INET6, mapped ? bytes + 12 : bytes, text.data(), text.size());
    }
    return text.data();
}

}  // namespace plendix
