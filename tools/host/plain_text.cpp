#include "host/plain_text.h"

#include <algorithm>
#include <cstdint>

namespace plendix {
namespace {

const char* const replacement = "\xEF\xBF\xBD";  // U+FFFD

bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

struct Character {
    std::size_t length = 1;   // bytes
    std::uint32_t value = 0;  // 0: no UTF-8
};

/// The character at `at`: overlong forms, surrogates and values above U+10FFFF are none.
Character character(const std::string& text, std::size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80) return {1, first};
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || at + length > text.size()) return {};
    std::uint32_t value = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (!continues(text[at + i])) return {};
        value = value << 6U | (static_cast<unsigned char>(text[at + i]) & 0x3FU);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    if (overlong || (value >= 0xD800 && value < 0xE000) || value > 0x10FFFF) return {};
    return {length, value};
}

bool acted_on(std::uint32_t value) {
    const auto within = [value](std::uint32_t first, std::uint32_t last) {
        return value >= first && value <= last;
    };
    return within(0, 0x1F) || within(0x7F, 0x9F) || value == 0xAD || value == 0x61C ||
           within(0x200B, 0x200F) || within(0x2028, 0x202E) || within(0x2060, 0x206F) || value == 0xFEFF ||
           within(0xFFF9, 0xFFFB) || within(0xE0000, 0xE0FFF);
}

std::size_t byte_of_column(const std::string& text, std::size_t column) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (continues(text[at])) continue;
        if (column-- == 0) return at;
    }
    return text.size();
}

}  // namespace

std::string printable(const std::string& text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        const Character next = character(text, at);
        const bool space = text[at] == '\n' || text[at] == '\t' || text[at] == '\r';
        if (space) {
            plain += ' ';
        } else if (acted_on(next.value)) {
            plain += replacement;
        } else {
            plain.append(text, at, next.length);
        }
        at += next.length;
    }
    return plain;
}

std::size_t columns_of(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !continues(byte); }));
}

std::string cut(const std::string& text, std::size_t columns) {
    if (columns_of(text) <= columns) return text;
    const std::string end(std::min<std::size_t>(columns, 3), '.');
    return text.substr(0, byte_of_column(text, columns - end.size())) + end;
}

std::vector<std::string> wrapped(const std::string& text, std::size_t columns, std::size_t indent) {
    columns = std::max(columns, indent + 20);
    std::vector<std::string> lines;
    std::string rest = text;
    while (columns_of(rest) > columns) {
        const std::size_t most = byte_of_column(rest, columns);
        std::size_t end = rest.rfind(' ', most);
        if (end == std::string::npos || end <= indent + columns / 3) end = most;
        lines.push_back(rest.substr(0, end));
        rest = std::string(indent, ' ') + rest.substr(rest[end] == ' ' ? end + 1 : end);
    }
    lines.push_back(rest);
    return lines;
}

}  // namespace plendix
