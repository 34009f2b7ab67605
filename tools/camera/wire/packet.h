// TFTP packets (RFC 1350, options RFC 2347, block size RFC 2348) as the server side needs them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace plendix::camera {

using Bytes = std::vector<std::uint8_t>;

/// Error codes of RFC 1350 clause 5 and RFC 2347.
enum class ErrorCode : std::uint16_t { other = 0, not_found = 1, access = 2, illegal = 4, option = 8 };

/// A request that is answered with an ERROR packet.
class Refused : public std::runtime_error {
public:
    Refused(ErrorCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
    ErrorCode code() const { return code_; }

private:
    ErrorCode code_;
};

/// A read request. Options other than blksize are not granted, so they are not kept.
struct ReadRequest {
    std::string name;
    std::optional<std::size_t> block_size;  // 8 to 65464 bytes, as asked for
};

/// Throws Refused for anything else than a well-formed read request.
ReadRequest parse_request(const std::uint8_t* data, std::size_t size);

/// An ACK's block number, or nothing when the packet is not an ACK.
std::optional<std::uint16_t> parse_acknowledgement(const std::uint8_t* data, std::size_t size);
bool is_error(const std::uint8_t* data, std::size_t size);

Bytes option_acknowledgement(std::size_t block_size);
Bytes error_packet(ErrorCode code, const std::string& text);
/// A DATA packet without payload yet, with room for `capacity` bytes of it.
Bytes data_header(std::uint16_t block, std::size_t capacity);

}  // namespace plendix::camera
