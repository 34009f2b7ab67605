// The elements that Matroska files are made of (RFC 8794, RFC 9559), as bytes in memory.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/frame.h"

namespace plendix {

/// IDs carry their length in their first byte: 0x1A45DFA3 is four bytes, 0xEC is one. Sizes and
/// numbers take eight bytes, so that an element's place does not depend on its value.
void put_id(Bytes& bytes, std::uint32_t id);
void put_size(Bytes& bytes, std::uint64_t size);
void put_big_endian(Bytes& bytes, std::uint64_t value, int width);

void put_number(Bytes& bytes, std::uint32_t id, std::uint64_t value);
void put_real(Bytes& bytes, std::uint32_t id, double value);
void put_text(Bytes& bytes, std::uint32_t id, std::string_view text);
void put_element(Bytes& bytes, std::uint32_t id, const Bytes& content);
/// An element that says nothing, `whole` bytes in all: at least 9.
void put_void(Bytes& bytes, std::size_t whole);

}  // namespace plendix
