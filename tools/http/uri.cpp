#include "http/uri.h"

#include <strings.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "host/plain_text.h"

namespace plendix {
namespace {

constexpr std::size_t most_fields = 64;  // of a query or a cookie header

int digit_of(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

/// Calls with each part of a text that `mark` divides.
void for_each_part(const std::string& text, char mark, const std::function<void(const std::string&)>& use) {
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(mark, at), text.size());
        use(text.substr(at, end - at));
        at = end + 1;
    }
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::pair<std::string, std::string> at_equals(const std::string& text) {
    const std::size_t mark = text.find('=');
    if (mark == std::string::npos) return {text, {}};
    return {text.substr(0, mark), text.substr(mark + 1)};
}

bool safe_path(const std::string& path) {
    bool safe =
        !path.empty() && path[0] == '/' && path.find('\\') == std::string::npos && printable(path) == path;
    for_each_part(path, '/',
                  [&safe](const std::string& segment) { safe = safe && segment != "." && segment != ".."; });
    return safe;
}

std::optional<std::string> form_decoded(std::string text) {
    std::replace(text.begin(), text.end(), '+', ' ');
    return percent_decoded(text);
}

}  // namespace

std::optional<std::string> percent_decoded(const std::string& text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            decoded += text[at];
            continue;
        }
        if (text.size() - at < 3) return std::nullopt;
        const int high = digit_of(text[at + 1]);
        const int low = digit_of(text[at + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        decoded += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return decoded;
}

/// Decoded once, and judged after it: "%2e%2e" is "..", and "%252e" a text with a percent sign.
std::optional<Target> parse_target(const std::string& target) {
    const std::size_t mark = target.find('?');
    const auto path = percent_decoded(target.substr(0, mark));
    if (!path || !safe_path(*path)) return std::nullopt;
    return Target{*path, mark == std::string::npos ? Fields{} : parse_query(target.substr(mark + 1))};
}

Fields parse_query(const std::string& text) {
    Fields fields;
    for_each_part(text, '&', [&fields](const std::string& part) {
        if (part.empty() || fields.size() == most_fields) return;
        const auto [name, value] = at_equals(part);
        const auto decoded_name = form_decoded(name);
        const auto decoded_value = form_decoded(value);
        if (!decoded_name || !decoded_value) return;
        if (printable(*decoded_name) != *decoded_name || printable(*decoded_value) != *decoded_value) return;
        fields.emplace_back(*decoded_name, *decoded_value);
    });
    return fields;
}

Fields parse_cookies(const std::string& text) {
    Fields fields;
    for_each_part(text, ';', [&fields](const std::string& part) {
        const auto [name, value] = at_equals(trimmed(part));
        if (!name.empty() && fields.size() < most_fields) fields.emplace_back(name, value);
    });
    return fields;
}

std::string bearer_token(const std::string& header) {
    constexpr std::size_t length = 7;
    if (strncasecmp(header.c_str(), "Bearer ", length) != 0) return {};
    return trimmed(header.substr(length));
}

}  // namespace plendix
