#include "probe/addresses.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include "host/plain_text.h"
#include "link/words.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::uint64_t most_addresses = 65536;
constexpr unsigned least_prefix = 16;  // bits
constexpr unsigned prefix_with_broadcast = 30;

[[noreturn]] void refuse(const std::string& word, const std::string& why) {
    throw UsageError('\'' + printable(word) + "' " + why);
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

/// A datagram there goes to nobody, or to many.
void require_machines(const AskedFor& asked) {
    constexpr std::uint32_t first = 1U << 24U, last = 0xDFFFFFFF;  // 0/8, and 224/4 and above
    if (asked.addresses.front() < first)
        refuse(asked.word, "has addresses of 0.0.0.0/8, which no machine has");
    if (asked.addresses.back() > last)
        refuse(asked.word, "has addresses from 224.0.0.0 on, which are those of groups or of nobody");
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
        require_machines(asked.back());
        count += asked.back().addresses.size();
        if (count > most_addresses) refuse(word, "makes them more than 65536 addresses");
    }
    return asked;
}

}  // namespace plendix
