// UTF-8 (RFC 3629), as far as TinyXML needs looking after: it reads as many bytes as the first byte
// of a sequence says, whether they are there or not.
#pragma once

#include <cstddef>
#include <string>

bool BeginsUtf8Sequence(char byte);  // of two to four bytes

// Bytes of the whole sequence at text, 2 to 4; 0 when there is none before end.
std::size_t Utf8SequenceLength(const char* text, const char* end);

// The same text, in which every byte of 0x80 and above that belongs to no sequence is taken for
// ISO 8859-1. There is room for reserve more bytes.
std::string ToUtf8(const char* text, std::size_t length, std::size_t reserve);

bool EndsInsideUtf8Sequence(const char* text, std::size_t length);
