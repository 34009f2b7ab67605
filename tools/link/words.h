// Addresses and bytes as people write them. Pure functions; numbers are in host order.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "link/packet.h"

namespace plendix {

/// "10.0.0.7", which is 0x0A000007
std::string address_text(std::uint32_t address);
/// Reads what it writes; nothing for anything else.
std::optional<std::uint32_t> address_of(const std::string& text);

/// "00-11-22-33-44-55", as in a camera's serial number
std::string mac_text(const std::array<std::uint8_t, 6>& mac);

/// "54 65", or without a separator "5465"
std::string hex_text(link::View bytes, const char* separator = " ");

}  // namespace plendix
