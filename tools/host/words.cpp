#include "host/words.h"

#include <array>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace plendix {

std::string fixed(double value, int digits) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

std::string span_words(std::chrono::seconds span) {
    const auto seconds = span.count() < 0 ? 0 : span.count();
    const auto two = [](std::int64_t more, const char* unit, std::int64_t less, const char* small) {
        const std::string first = std::to_string(more) + unit;
        return less == 0 ? first : first + ' ' + std::to_string(less) + small;
    };
    if (seconds < 60) return std::to_string(seconds) + " s";
    if (seconds < 3600) return std::to_string(seconds / 60) + " min";
    if (seconds < 86400) return two(seconds / 3600, " h", seconds / 60 % 60, " min");
    return two(seconds / 86400, seconds < std::int64_t{2} * 86400 ? " day" : " days", seconds / 3600 % 24,
               " h");
}

std::string byte_words(std::uint64_t bytes) {
    double value = static_cast<double>(bytes);
    const std::array<const char*, 5> units{" bytes", " kB", " MB", " GB", " TB"};
    std::size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < units.size(); ++unit)
        value /= 1000;
    return fixed(value, unit > 0 && value < 99.95 ? 1 : 0) + units[unit];
}

std::string clock_words(std::int64_t time_ms, bool day) {
    const auto seconds = static_cast<std::time_t>(time_ms / 1000);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), day ? "%e %b %H:%M:%S" : "%H:%M:%S", &parts);
    return text[0] == ' ' ? text.data() + 1 : text.data();
}

std::string camera_words(const std::set<int>& cameras, std::size_t columns) {
    std::string text = cameras.size() == 1 ? "camera " : "cameras ";
    std::size_t told = 0;
    for (auto next = cameras.begin(); next != cameras.end();) {
        const auto first = next;
        int last = *first;
        std::size_t length = 1;
        for (++next; next != cameras.end() && *next == last + 1; ++next, ++length)
            last = *next;
        std::string part = (told > 0 ? ", " : "") + std::to_string(*first);
        if (length > 1) part += (length == 2 ? ", " : "-") + std::to_string(last);
        const std::size_t rest = cameras.size() - told;
        const bool all = next == cameras.end();
        const std::string more = " and " + std::to_string(rest) + " more";
        if (told > 0 && text.size() + part.size() + (all ? 0 : more.size()) > columns) return text + more;
        text += part;
        told += length;
    }
    return text;
}

}  // namespace plendix
