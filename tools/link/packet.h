// TFTP packets (RFC 1350, options RFC 2347, block size RFC 2348) as a client sends and reads them, and
// as somebody reads who looks on. Pure functions; numbers on the wire are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace plendix::link {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t camera_port = 69;
constexpr std::size_t usual_block_size = 1450;  // bytes, asked for with every request

enum class Opcode : std::uint16_t {
    read_request = 1,
    write_request = 2,
    data = 3,
    acknowledgement = 4,
    error = 5,
    options = 6
};

/// Bytes in memory of someone else.
struct View {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

struct Packet {
    Opcode opcode = Opcode::data;
    std::uint16_t number = 0;  // block of DATA and ACK, code of ERROR; 0 for the others
    View rest;                 // behind opcode and number, in the packet's memory
};

/// Nothing for what is no TFTP packet: another opcode, or too short for its own.
std::optional<Packet> parse_packet(View datagram);

struct ReadRequest {
    std::string name;
    std::string mode;
    std::vector<std::pair<std::string, std::string>> options;  // names in lower case
};

/// Of a packet that is a read request. Nothing when a word is not ended.
std::optional<ReadRequest> parse_request(const Packet& packet);

/// The block size that an option acknowledgement grants, 8 to 65464; nothing where it grants none.
std::optional<std::size_t> granted_block_size(const Packet& packet);

/// An ERROR packet's words; whoever sent them may have sent anything.
std::string error_words(const Packet& packet);

/// A block size of 0 asks for none.
Bytes read_request(const std::string& name, std::size_t block_size = usual_block_size);
Bytes acknowledgement(std::uint16_t block);
/// Ends a transfer: "ERROR 0".
Bytes farewell(const std::string& words);

}  // namespace plendix::link
