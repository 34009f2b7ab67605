#include "http/visitor_check.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <optional>

#include "host/plain_text.h"

namespace plendix {
namespace {

constexpr std::size_t longest_shown = 80;

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

struct HostAndPort {
    std::string name;  // lower case, without brackets; empty: no such text
    std::string port;  // empty: not given
};

bool made_of(const std::string& text, const char* letters) {
    return !text.empty() && text.find_first_not_of(letters) == std::string::npos;
}

/// A version 6 address is in brackets, or its last part would look like a port.
HostAndPort split_host(const std::string& text) {
    const bool bracketed = !text.empty() && text[0] == '[';
    const std::size_t end = bracketed ? text.find(']') : std::min(text.find(':'), text.size());
    if (end == std::string::npos) return {};
    HostAndPort host{lower_case(bracketed ? text.substr(1, end - 1) : text.substr(0, end)), {}};
    const std::string rest = text.substr(bracketed ? end + 1 : end);
    if (!rest.empty()) host.port = rest.substr(1);
    const bool good_port =
        rest.empty() || (rest[0] == ':' && host.port.size() <= 5 && made_of(host.port, "0123456789"));
    const char* const letters = bracketed ? "0123456789abcdef:." : "abcdefghijklmnopqrstuvwxyz0123456789.-_";
    if (!good_port || !made_of(host.name, letters)) return {};
    return host;
}

bool is_numeric(const std::string& name) {
    in6_addr address{};
    return inet_pton(AF_INET, name.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, name.c_str(), &address) == 1;
}

bool is_own_name(const std::string& name, const OwnNames& own) {
    if (own.any_address && is_numeric(name)) return true;
    return std::find(own.names.begin(), own.names.end(), name) != own.names.end();
}

/// A proxy in front may speak TLS where this server does not, but not the other way round.
bool is_own_origin(const std::string& origin, const std::string& host, bool tls) {
    const bool secure = strncasecmp(origin.c_str(), "https://", 8) == 0;
    if (!secure && (tls || strncasecmp(origin.c_str(), "http://", 7) != 0)) return false;
    HostAndPort theirs = split_host(origin.substr(secure ? 8 : 7));
    HostAndPort ours = split_host(host);
    for (HostAndPort* one : {&theirs, &ours})
        if (one->port.empty()) one->port = secure ? "443" : "80";
    return !theirs.name.empty() && theirs.name == ours.name && theirs.port == ours.port;
}

std::ptrdiff_t count_of(const Request& request, const char* name) {
    return std::count_if(request.headers.begin(), request.headers.end(),
                         [name](const auto& field) { return strcasecmp(field.first.c_str(), name) == 0; });
}

/// Two readings of where a request ends let one be hidden in another.
bool ambiguous(const Request& request) {
    const auto lengths = count_of(request, "Content-Length");
    const auto codings = count_of(request, "Transfer-Encoding");
    return lengths > 1 || codings > 1 || (lengths > 0 && codings > 0) || count_of(request, "Host") != 1;
}

std::string shown(const std::string& text) {
    return "'" + cut(printable(text), longest_shown) + "'";
}

/// A page of somebody else made the browser ask; a link that was followed is no such thing.
bool led_by_other_site(const Request& request) {
    const std::string site = request.header("Sec-Fetch-Site").value_or("none");
    const bool other = site == "cross-site" || site == "same-site";
    return other && request.header("Sec-Fetch-Mode").value_or("") != "navigate";
}

}  // namespace

std::string name_of_host(const std::string& host) {
    return split_host(host).name;
}

Denial check_visitor(const Request& request, bool changes, const OwnNames& own) {
    if (ambiguous(request)) return {400, "a request needs one Host header, and one length at most"};
    const std::string host = *request.header("Host");
    const std::string name = name_of_host(host);
    if (name.empty() || !is_own_name(name, own))
        return {421, "this server is not known as " + shown(host) + ": --host-name makes it so"};
    const auto origin = request.header("Origin");
    if (count_of(request, "Origin") > 1 || (origin && !is_own_origin(*origin, host, own.tls)))
        return {403, "pages of " + shown(origin.value_or("")) + " may not use this server"};
    if (led_by_other_site(request)) return {403, "pages of other sites may not use this server"};
    if (changes && request.header("X-Plendix").value_or("") != "1")
        return {403, "what changes something needs the header 'X-Plendix: 1'"};
    return {};
}

}  // namespace plendix
