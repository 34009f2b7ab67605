#include "http/library_response.h"

#include <microhttpd.h>
#include <strings.h>

#include <algorithm>
#include <stdexcept>

namespace plendix {
namespace {

constexpr std::size_t stream_block = 64U << 10U;  // bytes; where the client takes no chunks

/// For every response. Scripts, styles and connections of this server only, nothing inline, and no page
/// around it; what a camera calls itself is text wherever it gets to.
constexpr struct {
    const char* name;
    const char* value;
} standard_headers[] = {
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' blob: data:; media-src 'self' blob:; connect-src 'self'; "
     "object-src 'none'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

void let_go(void* owner) {
    delete static_cast<std::shared_ptr<const void>*>(owner);
}

ssize_t read_seat(void* seat, std::uint64_t, char* to, std::size_t size) {
    return static_cast<StreamSeat*>(seat)->read(reinterpret_cast<std::uint8_t*>(to), size);
}

MHD_Response* with_body(const SharedBytes& body) {
    void* const data = const_cast<std::uint8_t*>(body.data);  // NOLINT: the library only reads it
    auto* const owner = new std::shared_ptr<const void>(body.owner);
    MHD_Response* const made =
        MHD_create_response_from_buffer_with_free_callback_cls(body.size, data, let_go, owner);
    if (made == nullptr) let_go(owner);
    return made;
}

void add_header(MHD_Response* response, const char* name, const char* value) {
    if (MHD_add_response_header(response, name, value) != MHD_YES)
        throw std::runtime_error(std::string("no header: ") + name);
}

bool has_header(const Response& response, const char* name) {
    return std::any_of(response.headers.begin(), response.headers.end(),
                       [name](const auto& field) { return strcasecmp(field.first.c_str(), name) == 0; });
}

}  // namespace

void ReleaseLibraryResponse::operator()(MHD_Response* response) const {
    MHD_destroy_response(response);
}

LibraryResponse library_response(const Response& response, StreamSeat* seat) {
    const std::uint64_t size = response.stream_size != 0 ? response.stream_size : MHD_SIZE_UNKNOWN;
    LibraryResponse made(
        seat == nullptr ? with_body(response.body)
                        : MHD_create_response_from_callback(size, stream_block, read_seat, seat, nullptr));
    if (!made) throw std::bad_alloc();
    for (const auto& [name, value] : standard_headers)
        add_header(made.get(), name, value);
    for (const auto& [name, value] : response.headers)
        add_header(made.get(), name.c_str(), value.c_str());
    if (!has_header(response, "Cache-Control")) add_header(made.get(), "Cache-Control", "no-store");
    return made;
}

}  // namespace plendix
