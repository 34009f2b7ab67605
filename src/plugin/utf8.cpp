#include "plugin/utf8.h"

#include <algorithm>

namespace {

constexpr std::ptrdiff_t LongestSequence = 4;

std::ptrdiff_t AnnouncedLength(char first) {
    const auto byte = static_cast<unsigned char>(first);
    return byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

bool BeginsUtf8Sequence(char byte) {
    return static_cast<unsigned char>(byte) >= 0xC2 && static_cast<unsigned char>(byte) <= 0xF4;
}

std::size_t Utf8SequenceLength(const char* text, const char* end) {
    if (text >= end || !BeginsUtf8Sequence(*text)) return 0;
    const std::ptrdiff_t length = AnnouncedLength(*text);
    const bool whole = end - text >= length && std::all_of(text + 1, text + length, IsContinuation);
    return whole ? static_cast<std::size_t>(length) : 0;
}

std::string ToUtf8(const char* text, std::size_t length, std::size_t reserve) {
    std::string utf8;
    utf8.reserve(length + reserve);
    const char* const end = text + length;
    for (const char* p = text; p < end;) {
        const auto byte = static_cast<unsigned char>(*p);
        const std::size_t whole = byte < 0x80 ? 1 : Utf8SequenceLength(p, end);
        if (whole != 0) {
            utf8.append(p, whole);
            p += whole;
            continue;
        }
        utf8 += static_cast<char>(0xC0 | byte >> 6);
        utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        ++p;
    }
    return utf8;
}

bool EndsInsideUtf8Sequence(const char* text, std::size_t length) {
    const char* const end = text + length;
    const char* const first = end - std::min(static_cast<std::ptrdiff_t>(length), LongestSequence - 1);
    return std::any_of(
        first, end, [end](const char& c) { return BeginsUtf8Sequence(c) && end - &c < AnnouncedLength(c); });
}
