// What a TFTP client leaves of a picture: all blocks and the trailer, one behind the other. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "link/picture.h"

namespace plendix {

struct RawHints {
    std::optional<std::size_t> block_size;  // that it was fetched with
    link::Kind codec = link::Kind::other;   // by the request's name
};

struct RawTransfer {
    link::Bytes payload;
    link::Trailer trailer;
    std::string trouble;  // why it is none; the others mean nothing then
};

/// Block sizes that clients use are tried where none is given. A request's name helps where none of them
/// leaves a trailer.
RawTransfer read_raw_transfer(const link::Bytes& file, const RawHints& hints);

/// The request's name as it is, or as clients make a file's name of it: "image%3Fres=full;quality=8;".
link::FileName request_of(std::string_view file_name);

}  // namespace plendix
