#include "host/command_values.h"

#include <arpa/inet.h>

#include <charconv>
#include <sstream>

#include "usage.h"

namespace plendix {
namespace {

constexpr double longest_seconds = 366.0 * 24 * 3600;
constexpr int longest_side = 65535;

/// Reads a number that ends at `end`; 0 when it does not.
int side(const char* begin, const char* end) {
    int value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value);
    return error == std::errc() && stop == end && value <= longest_side ? value : 0;
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
    if (inet_pton(AF_INET, text.c_str(), &address) == 1) return text;
    throw UsageError("address '" + text + "' is not a dotted IPv4 address, as in 192.168.1.20");
}

Codec parse_codec(const std::string& text) {
    if (text.empty()) return Codec::camera_default;
    if (text == "jpeg") return Codec::jpeg;
    if (text == "h264") return Codec::h264;
    throw UsageError("codec '" + text + "' is neither jpeg nor h264");
}

std::chrono::milliseconds parse_seconds(double seconds) {
    if (seconds >= 0 && seconds <= longest_seconds) {
        return std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    }
    std::ostringstream text;
    text << "duration " << seconds << " is not a number of seconds from 0 to a year";
    throw UsageError(text.str());
}

}  // namespace plendix
