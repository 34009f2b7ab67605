// Packets as people read them. Pure functions; the lines are fit for a terminal.
#pragma once

#include <string>

#include "link/packet.h"

namespace plendix::check {

/// "DATA 3, 1450 bytes", "OACK blksize 1450", "ERROR 1 'no such file'", "600 bytes that are no packet";
/// behind a colon the first bytes in hex.
std::string packet_text(link::View datagram);

/// At most 16 bytes, "00 03 00 01 ...".
std::string first_bytes(link::View bytes);

}  // namespace plendix::check
