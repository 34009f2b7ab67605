#include "http/router.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

namespace plendix {
namespace {

constexpr std::size_t most_digits = 9;
const char* const text_mark = ":text";

std::vector<std::string> segments_of(const std::string& path) {
    std::vector<std::string> segments;
    for (std::size_t at = 1; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        segments.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return segments;
}

bool is_number(const std::string& text) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return digits && text.size() <= most_digits;
}

bool starts_with(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

using Parameters = std::map<std::string, std::string>;

/// A segment of a pattern has one parameter at most, with fixed text before and after it.
bool segment_fits(const std::string& pattern, const std::string& segment, Parameters& parameters) {
    const std::size_t open = pattern.find('{');
    if (open == std::string::npos) return pattern == segment;
    const std::size_t close = pattern.find('}', open);
    const std::string before = pattern.substr(0, open);
    const std::string after = pattern.substr(close + 1);
    std::string name = pattern.substr(open + 1, close - open - 1);
    if (segment.size() <= before.size() + after.size()) return false;
    if (!starts_with(segment, before) || !ends_with(segment, after)) return false;
    const std::string value = segment.substr(before.size(), segment.size() - before.size() - after.size());
    if (!ends_with(name, text_mark) && !is_number(value)) return false;
    parameters[name.substr(0, name.find(':'))] = value;
    return true;
}

std::optional<Parameters> parameters_of(const Route& route, const std::vector<std::string>& segments) {
    if (route.pattern.size() != segments.size()) return std::nullopt;
    Parameters parameters;
    for (std::size_t i = 0; i < segments.size(); ++i)
        if (!segment_fits(route.pattern[i], segments[i], parameters)) return std::nullopt;
    return parameters;
}

void allow(const std::string& method, std::string& list) {
    if (list.find(method) != std::string::npos) return;
    list += (list.empty() ? "" : ", ") + method;
    if (method == "GET") list += ", HEAD";
}

}  // namespace

void Router::add(const std::string& method, const std::string& pattern, Handler handler,
                 RouteOptions options) {
    const auto opened = std::count(pattern.begin(), pattern.end(), '{');
    if (pattern.empty() || pattern[0] != '/' || opened != std::count(pattern.begin(), pattern.end(), '}'))
        throw std::invalid_argument("no route's pattern: " + pattern);
    routes_.push_back({method, segments_of(pattern), std::move(handler), options});
}

RouteMatch Router::find(const std::string& method, const std::string& path) const {
    const std::string wanted = method == "HEAD" ? "GET" : method;
    const std::vector<std::string> segments = segments_of(path);
    RouteMatch match;
    for (const Route& route : routes_) {
        auto parameters = parameters_of(route, segments);
        if (!parameters) continue;
        if (route.method == wanted) return {&route, std::move(*parameters), 200, {}};
        match.status = 405;
        allow(route.method, match.allow);
    }
    return match;
}

}  // namespace plendix
