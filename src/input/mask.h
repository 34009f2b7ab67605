// The text form of a motion mask: 3 bytes are 4 characters from " " (a zero group) to "_".
#pragma once

// Encodes whole groups of 3 bytes, as many as capacity characters hold. Returns the characters
// written; writes no terminating NUL.
unsigned int uu_encode(const unsigned char* source, unsigned int length, char* destination,
                       unsigned int capacity);

// Decodes whole groups of 4 characters, whatever they are, as many as capacity bytes hold.
// Returns the bytes written.
unsigned int uu_decode(const char* source, unsigned int length, unsigned char* destination,
                       unsigned int capacity);
