#include "probe/addresses.h"

#include <arpa/inet.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "host/plain_text.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::uint64_t most_addresses = 65536;
constexpr unsigned least_prefix = 16;  // bits
constexpr unsigned prefix_with_broadcast = 30;

[[noreturn]] void refuse(const std::string& word, const std::string& why) {
    throw UsageError('\'' + printable(word) + "' " + why);
}

std::optional<std::uint32_t> address_of(const std::string& text) {
    in_addr host{};
    if (inet_pton(AF_INET, text.c_str(), &host) != 1) return std::nullopt;
    return ntohl(host.s_addr);
}

std::optional<unsigned> number_of(const std::string& text, unsigned most) {
    const bool digits = !text.empty() && text.size() <= 3 &&
                        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    const unsigned value = digits ? static_cast<unsigned>(std::stoul(text)) : most + 1;
    return value <= most ? std::optional(value) : std::nullopt;
}

std::vector<std::uint32_t> span(const std::string& word, std::uint32_t first, std::uint32_t last) {
    if (last < first) refuse(word, "ends before it begins");
    if (std::uint64_t{last} - first >= most_addresses)
        refuse(word, "is " + std::to_string(std::uint64_t{last} - first + 1) +
                         " addresses: give 65536 at most, a /16");
    std::vector<std::uint32_t> addresses(last - first + 1);
    std::iota(addresses.begin(), addresses.end(), first);
    return addresses;
}

std::vector<std::uint32_t> network(const std::string& word, std::size_t slash) {
    const auto base = address_of(word.substr(0, slash));
    const auto prefix = number_of(word.substr(slash + 1), 32);
    if (!base || !prefix) refuse(word, "is no network: give it as 192.168.1.0/24");
    if (*prefix < least_prefix)
        refuse(word, "is " + std::to_string(std::uint64_t{1} << (32 - *prefix)) +
                         " addresses: give networks of /16 or smaller");
    const std::uint32_t hosts = *prefix == 32 ? 0 : 0xFFFFFFFFU >> *prefix;
    const std::uint32_t first = *base & ~hosts;
    const std::uint32_t edge = *prefix <= prefix_with_broadcast ? 1 : 0;
    return span(word, first + edge, (first | hosts) - edge);
}

std::vector<std::uint32_t> range(const std::string& word, std::size_t dash) {
    const auto first = address_of(word.substr(0, dash));
    const std::string end = word.substr(dash + 1);
    auto last = address_of(end);
    if (const auto tail = number_of(end, 255); first && tail) last = (*first & 0xFFFFFF00U) | *tail;
    if (!first || !last) refuse(word, "is no range: give it as 192.168.1.20-192.168.1.40");
    return span(word, *first, *last);
}

AskedFor parse(const std::string& word) {
    const std::size_t slash = word.find('/'), dash = word.find('-');
    if (slash != std::string::npos) return {word, true, network(word, slash)};
    if (dash != std::string::npos) return {word, true, range(word, dash)};
    const auto address = address_of(word);
    if (!address) refuse(word, "is no IPv4 address: give four numbers, as in 192.168.1.20, or a range");
    return {word, false, {*address}};
}

}  // namespace

std::vector<AskedFor> parse_addresses(const std::vector<std::string>& words) {
    std::vector<AskedFor> asked;
    std::uint64_t count = 0;
    for (const std::string& word : words) {
        asked.push_back(parse(word));
        count += asked.back().addresses.size();
        if (count > most_addresses) refuse(word, "makes them more than 65536 addresses");
    }
    return asked;
}

std::string dotted(std::uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += (text.empty() ? "" : ".") + std::to_string(address >> shift & 255U);
    return text;
}

}  // namespace plendix
