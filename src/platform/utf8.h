// UTF-8 (RFC 3629): what leaves for the host is nothing else. Any thread.
#pragma once

#include <cstddef>
#include <string>

// Bytes of the well-formed sequence at text, 1 to 4; 0 when there is none before end.
std::size_t Utf8SequenceLength(const char* text, const char* end);

// The same text, in which every byte that belongs to no well-formed sequence is taken for ISO 8859-1.
std::string ToUtf8(const std::string& text);

// The same text, of which every byte is taken for ISO 8859-1.
std::string Latin1ToUtf8(const std::string& text);

// True when a byte near the end announces more bytes than follow, whatever these are.
bool EndsInsideUtf8Sequence(const char* text, std::size_t length);

// Of a text that was cut off at length: the bytes up to the last character that is still whole.
std::size_t Utf8WholeLength(const char* text, std::size_t length);
