// What a capture tells of datagrams that reached this machine and that the kernel then dropped, because
// a socket's buffer was full: comments of packets, which other programs show, too. Pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "field/datagram.h"

namespace plendix {

/// The counter of a local UDP socket has changed within the second before the packet that carries the note.
struct DropNote {
    Endpoint socket;          // as it is bound: 0.0.0.0 where any address is its own
    std::uint64_t total = 0;  // since the capture began
    std::uint64_t added = 0;  // since the note before
};

/// "plendix: socket 0.0.0.0:40001 dropped 5 (+2)"
std::string drop_note(const DropNote& note);

/// The notes of a packet's comment, line by line; other lines are passed over. 256 at most.
std::vector<DropNote> drop_notes(const std::string& comment);

}  // namespace plendix
