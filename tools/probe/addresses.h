// The addresses of a command line: single ones and ranges. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace plendix {

/// One word of the command line.
struct AskedFor {
    std::string word;
    bool range = false;
    std::vector<std::uint32_t> addresses;  // 10.0.0.1 is 0x0A000001
};

/// "10.0.0.7", "10.0.0.0/24" (without the network's own address and the broadcast address),
/// "10.0.0.1-10.0.0.50", "10.0.0.1-50". At most 65536 addresses all together, all of
/// single machines as far as the numbers tell. Throws UsageError.
std::vector<AskedFor> parse_addresses(const std::vector<std::string>& words);

}  // namespace plendix
