// A transfer of a capture, in the form in which it is played again: what is sent, and what of the client
// it waits for. The bytes stay in the capture's file. Never changed once it is made.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "field/transfer.h"

namespace plendix {

/// From which address and port a datagram came.
enum class ReplayWay : std::uint8_t { transfer_port, request_port, stranger };

/// A datagram for the client.
struct ReplaySend {
    std::uint64_t position = 0;  // of its bytes in the file, or in ReplayTransfer::made
    std::uint32_t time_us = 0;   // since the request
    std::uint16_t size = 0;
    std::uint16_t captured = 0;  // bytes of these that the file has
    std::uint16_t after = 0;     // the cue before it
    ReplayWay way = ReplayWay::transfer_port;
};

/// A datagram of the client.
struct ReplayCue {
    std::uint32_t head = 0;  // its first four bytes: opcode and number
    std::uint32_t time_us = 0;
};

struct ReplayTransfer {
    std::string request;
    link::FileName name;
    std::int64_t begin_ns = 0;
    std::vector<ReplayCue> cues;    // the first is the request
    std::vector<ReplaySend> sends;  // in the order of the capture
    link::Bytes made;               // of a transfer that no capture has
    bool taken = false;             // the client got what it waits for; a driver reconnects otherwise
    bool ended = false;             // the camera sent the last block
    bool answered = false;          // by the camera, not only by strangers
    bool key = false;               // a picture that a decoder can begin with
    bool cut = false;               // some bytes are not in the file
    std::int32_t value = -1;        // what a register was answered with
};

using ReplayTransferPointer = std::shared_ptr<const ReplayTransfer>;

/// The first four bytes of a datagram, zeros behind shorter ones.
std::uint32_t head_of(link::View datagram);

/// So many bytes of each step are needed.
constexpr std::size_t replay_kept_bytes = 128;
ReplayTransferPointer replay_of(const Transfer& transfer);

/// A register's answer that no capture has. With options the client has asked for a block size.
ReplayTransferPointer made_answer(std::uint16_t value, bool options);

/// An ERROR packet instead of an answer.
ReplayTransferPointer made_refusal(const std::string& words);

}  // namespace plendix
