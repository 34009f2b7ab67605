#include "container/ebml.h"

#include <cstring>

namespace plendix {
namespace {

constexpr std::uint32_t id_void = 0xEC;
constexpr std::size_t void_head_bytes = 9;  // ID and size

}  // namespace

void put_big_endian(Bytes& bytes, std::uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
}

void put_id(Bytes& bytes, std::uint32_t id) {
    put_big_endian(bytes, id, id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1);
}

void put_size(Bytes& bytes, std::uint64_t size) {
    put_big_endian(bytes, std::uint64_t{1} << 56U | size, 8);
}

void put_number(Bytes& bytes, std::uint32_t id, std::uint64_t value) {
    put_id(bytes, id);
    put_size(bytes, sizeof value);
    put_big_endian(bytes, value, sizeof value);
}

void put_real(Bytes& bytes, std::uint32_t id, double value) {
    std::uint64_t bits = 0;
    static_assert(sizeof bits == sizeof value, "IEEE 754");
    std::memcpy(&bits, &value, sizeof bits);
    put_number(bytes, id, bits);
}

void put_text(Bytes& bytes, std::uint32_t id, std::string_view text) {
    put_element(bytes, id, Bytes(text.begin(), text.end()));
}

void put_element(Bytes& bytes, std::uint32_t id, const Bytes& content) {
    put_id(bytes, id);
    put_size(bytes, content.size());
    bytes.insert(bytes.end(), content.begin(), content.end());
}

void put_void(Bytes& bytes, std::size_t whole) {
    put_element(bytes, id_void, Bytes(whole - void_head_bytes));
}

}  // namespace plendix
