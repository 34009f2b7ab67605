#include "link/words.h"

#include <arpa/inet.h>

namespace plendix {

std::string address_text(std::uint32_t address) {
    std::string text;
    for (const unsigned shift : {24U, 16U, 8U, 0U})
        text += std::to_string(address >> shift & 0xFFU) + (shift > 0 ? "." : "");
    return text;
}

std::optional<std::uint32_t> address_of(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

std::string mac_text(const std::array<std::uint8_t, 6>& mac) {
    return hex_text({mac.data(), mac.size()}, "-");
}

std::string hex_text(link::View bytes, const char* separator) {
    const char* const digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size; ++i) {
        if (i > 0) text += separator;
        text += digits[bytes.data[i] >> 4];
        text += digits[bytes.data[i] & 15];
    }
    return text;
}

}  // namespace plendix
