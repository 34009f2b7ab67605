#include "host/command_values.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <sstream>

#include "usage.h"

namespace plendix {
namespace {

constexpr double longest_seconds = 366.0 * 24 * 3600;
constexpr int longest_side = 65535;
constexpr double longest_duration = 100 * 366.0 * 24 * 3600;  // seconds
constexpr double most_bytes = 1e18;

/// Reads a number that ends at `end`; 0 when it does not.
int side(const char* begin, const char* end) {
    int value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value);
    return error == std::errc() && stop == end && value <= longest_side ? value : 0;
}

struct Unit {
    char letter;
    double value;
};

/// Reads a number from 0 on, with decimals, and at most one letter behind it; nothing when the text is
/// no such thing or beyond the limit.
template <class Units>
std::optional<double> parse_quantity(const std::string& text, const Units& units, double limit) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (error != std::errc() || end - stop > 1 || std::signbit(value)) return std::nullopt;
    double factor = stop == end ? 1 : 0;
    for (const Unit& unit : units)
        if (stop != end && *stop == unit.letter) factor = unit.value;
    value *= factor;
    return factor > 0 && value <= limit ? std::optional(value) : std::nullopt;
}

}  // namespace

std::pair<int, int> parse_size(const std::string& text) {
    const std::size_t cross = text.find('x');
    if (cross != std::string::npos) {
        const char* begin = text.data();
        const int width = side(begin, begin + cross);
        const int height = side(begin + cross + 1, begin + text.size());
        if (width > 0 && height > 0) return {width, height};
    }
    throw UsageError("size '" + text + "' is not WIDTHxHEIGHT in pixels, as in 1280x960");
}

std::string parse_address(const std::string& text) {
    in_addr address{};
    const bool one_text = text.find('\0') == std::string::npos;
    if (one_text && inet_pton(AF_INET, text.c_str(), &address) == 1) return text;
    throw UsageError("address '" + text + "' is not a dotted IPv4 address, as in 192.168.1.20");
}

Codec parse_codec(const std::string& text) {
    if (text.empty()) return Codec::camera_default;
    if (text == "jpeg") return Codec::jpeg;
    if (text == "h264") return Codec::h264;
    throw UsageError("codec '" + text + "' is neither jpeg nor h264");
}

void require_range(const char* what, int value, int most) {
    if (value >= 0 && value <= most) return;
    throw UsageError(std::string(what) + ' ' + std::to_string(value) + " is not from 1 to " +
                     std::to_string(most));
}

std::chrono::milliseconds parse_seconds(double seconds) {
    if (seconds >= 0 && seconds <= longest_seconds) {
        return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    }
    std::ostringstream text;
    text << "duration " << seconds << " is not a number of seconds from 0 to a year";
    throw UsageError(text.str());
}

std::chrono::milliseconds parse_duration(const std::string& text) {
    constexpr Unit units[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 24 * 3600}};
    const auto seconds = parse_quantity(text, units, longest_duration);
    if (seconds) return std::chrono::milliseconds(std::llround(*seconds * 1000));
    throw UsageError("duration '" + text +
                     "' is not a number of seconds, or one with s, m, h or d, as in 90s, 10m or 7d");
}

std::uint64_t parse_bytes(const std::string& text) {
    constexpr Unit units[] = {{'K', 0x1p10}, {'M', 0x1p20}, {'G', 0x1p30}, {'T', 0x1p40}};
    const auto bytes = parse_quantity(text, units, most_bytes);
    if (bytes) return static_cast<std::uint64_t>(*bytes);
    throw UsageError("size '" + text + "' is not a number of bytes, or one with K, M, G or T, as in 200G");
}

void require_no_terminal(const std::string& example) {
    if (isatty(STDOUT_FILENO) == 1)
        throw UsageError("standard output is a terminal, which shows no pictures: try '" + example + '\'');
}

}  // namespace plendix
