#include "record/clock_text.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <regex>

#include "host/event_json.h"
#include "usage.h"

namespace plendix {
namespace {

std::time_t seconds_of(const std::tm& wanted, bool utc) {
    std::tm parts = wanted;
    parts.tm_isdst = -1;
    return utc ? timegm(&parts) : std::mktime(&parts);
}

/// Whether the fields are those of a moment that exists, such as no 30th of February.
bool exists(const std::tm& wanted) {
    std::tm parts = wanted;
    timegm(&parts);
    return parts.tm_mday == wanted.tm_mday && parts.tm_mon == wanted.tm_mon &&
           parts.tm_hour == wanted.tm_hour && parts.tm_min == wanted.tm_min && parts.tm_sec == wanted.tm_sec;
}

int number(const std::ssub_match& digits) {
    return digits.matched ? std::stoi(digits) : 0;
}

}  // namespace

std::int64_t parse_moment(const char* option, const std::string& text, bool utc, DayMeans day) {
    static const std::regex form(
        R"(([0-9]{4})-([0-9]{2})-([0-9]{2})(?:[T ]([0-9]{2}):([0-9]{2})(?::([0-9]{2})(?:\.([0-9]{1,3}))?)?)?(Z)?)");
    std::smatch parts;
    std::tm moment{};
    if (std::regex_match(text, parts, form)) {
        moment.tm_year = number(parts[1]) - 1900;
        moment.tm_mon = number(parts[2]) - 1;
        moment.tm_mday = number(parts[3]);
        moment.tm_hour = number(parts[4]);
        moment.tm_min = number(parts[5]);
        moment.tm_sec = number(parts[6]);
    }
    if (parts.empty() || moment.tm_year < 70 || !exists(moment))
        throw UsageError(std::string(option) + " '" + text +
                         "' is no moment from 1970 on: expected 2026-11-23, 2026-11-23T14:00 or "
                         "2026-11-23T14:00:05.250, with Z for UTC");
    if (!parts[4].matched && day == DayMeans::its_end) ++moment.tm_mday;
    const std::string fraction = (parts[7].str() + "000").substr(0, 3);
    return static_cast<std::int64_t>(seconds_of(moment, utc || parts[8].matched)) * 1000 +
           std::stoi(fraction);
}

std::string moment_text(std::int64_t time_ms, bool utc) {
    if (utc) return utc_text(time_ms);
    const auto seconds = static_cast<std::time_t>(time_ms / 1000);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03d", static_cast<int>(time_ms % 1000));
    return text.data();
}

}  // namespace plendix
