// A response as libmicrohttpd has it, with the headers that every response has.
#pragma once

#include <memory>

#include "http/response.h"
#include "http/stream_seat.h"

struct MHD_Response;

namespace plendix {

struct ReleaseLibraryResponse {
    void operator()(MHD_Response* response) const;
};
using LibraryResponse = std::unique_ptr<MHD_Response, ReleaseLibraryResponse>;

/// With the body's bytes as they are, or those of the stream at `seat`, which lives as long as the
/// request. Throws std::runtime_error at a header that is none.
LibraryResponse library_response(const Response& response, StreamSeat* seat);

}  // namespace plendix
