#include "platform/utf8.h"

#include <algorithm>

namespace {

constexpr std::size_t LongestSequence = 4;

unsigned int Byte(char c) {
    return static_cast<unsigned char>(c);
}

bool IsContinuation(char c) {
    return (Byte(c) & 0xC0) == 0x80;
}

// Bytes that a sequence with this first byte has; 0 when none begins with it.
std::size_t AnnouncedLength(char first) {
    const unsigned int byte = Byte(first);
    if (byte < 0x80) return 1;
    if (byte < 0xC2 || byte > 0xF4) return 0;
    return byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
}

// RFC 3629 section 4: neither overlong forms nor surrogates nor anything above U+10FFFF.
bool IsSecondByte(char first, char second) {
    const unsigned int byte = Byte(second);
    switch (Byte(first)) {
        case 0xE0:
            return byte >= 0xA0;
        case 0xED:
            return byte < 0xA0;
        case 0xF0:
            return byte >= 0x90;
        case 0xF4:
            return byte < 0x90;
        default:
            return true;
    }
}

void AppendLatin1(std::string& utf8, char c) {
    utf8 += static_cast<char>(0xC0 | Byte(c) >> 6);
    utf8 += static_cast<char>(0x80 | (Byte(c) & 0x3F));
}

}  // namespace

std::size_t Utf8SequenceLength(const char* text, const char* end) {
    const std::size_t length = text < end ? AnnouncedLength(*text) : 0;
    if (length <= 1) return length;
    const bool whole = static_cast<std::size_t>(end - text) >= length &&
                       std::all_of(text + 1, text + length, IsContinuation) && IsSecondByte(text[0], text[1]);
    return whole ? length : 0;
}

std::string ToUtf8(const std::string& text) {
    std::string utf8;
    utf8.reserve(text.size());
    const char* const end = text.data() + text.size();
    for (const char* p = text.data(); p < end;) {
        const std::size_t length = Utf8SequenceLength(p, end);
        if (length != 0)
            utf8.append(p, length);
        else
            AppendLatin1(utf8, *p);
        p += std::max<std::size_t>(length, 1);
    }
    return utf8;
}

std::string Latin1ToUtf8(const std::string& text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (const char c : text) {
        if (Byte(c) < 0x80)
            utf8 += c;
        else
            AppendLatin1(utf8, c);
    }
    return utf8;
}

bool EndsInsideUtf8Sequence(const char* text, std::size_t length) {
    for (std::size_t back = 1; back <= std::min(length, LongestSequence); ++back) {
        if (AnnouncedLength(text[length - back]) > back) return true;
    }
    return false;
}

std::size_t Utf8WholeLength(const char* text, std::size_t length) {
    for (std::size_t back = 1; back <= std::min(length, LongestSequence); ++back) {
        const std::size_t announced = AnnouncedLength(text[length - back]);
        if (announced != 0) return announced > back ? length - back : length;
    }
    return length;
}
