#include "live/jpeg_parts.h"

#include <string_view>

#include "usage.h"

namespace plendix {
namespace {

Piece piece_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace

void JpegParts::begin(const PictureFormat& format, std::int64_t /*start_ms*/) {
    if (format.codec != FrameCodec::jpeg) throw Failure("multipart JPEG has no H.264 pictures");
}

const Pieces& JpegParts::write(const Pieces& picture, bool /*key*/, std::int64_t /*time_ms*/) {
    std::size_t bytes = 0;
    for (const Piece& piece : picture)
        bytes += piece.size;
    head_ = "--plendix\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(bytes) + "\r\n\r\n";
    pieces_.assign(1, piece_of(head_));
    pieces_.insert(pieces_.end(), picture.begin(), picture.end());
    pieces_.push_back(piece_of("\r\n"));
    return pieces_;
}

}  // namespace plendix
