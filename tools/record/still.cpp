#include "record/still.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "host/descriptor.h"
#include "host/picture_format.h"
#include "host/still_image.h"
#include "host/write_failure.h"
#include "record/movie_file.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

void require(bool done, const fs::path& movie) {
    if (!done) throw Failure("cannot make a still picture of '" + movie.string() + "'");
}

/// From where the movie stands to its end; without data when there is none.
LibavPointer<AVPacket> last_key_frame(MovieFile& movie) {
    LibavPointer<AVPacket> packet(av_packet_alloc());
    LibavPointer<AVPacket> last(av_packet_alloc());
    if (!packet || !last) throw std::bad_alloc();
    while (movie.read(*packet)) {
        if ((packet->flags & AV_PKT_FLAG_KEY) == 0) continue;
        av_packet_unref(last.get());
        av_packet_move_ref(last.get(), packet.get());
    }
    return last;
}

/// A file without an index is read as a whole.
LibavPointer<AVPacket> last_key_frame(const fs::path& file) {
    MovieFile movie(file);
    if (movie.seek_end()) {
        LibavPointer<AVPacket> last = last_key_frame(movie);
        if (last->size > 0) return last;
    }
    MovieFile whole(file);
    LibavPointer<AVPacket> last = last_key_frame(whole);
    require(last->size > 0, file);
    return last;
}

Bytes png_of(const fs::path& file, const MovieFile& movie, const AVPacket& packet) {
    const auto picture = decode_still(*movie.strict_decoder(), packet);
    require(picture != nullptr, file);
    return encode_still(*picture, StillFormat::png);
}

fs::path save(const Piece& picture, fs::path file, const char* extension) {
    file.replace_extension(extension);
    const Descriptor still(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!still) throw WriteFailure(file, errno);
    const ssize_t written = ::write(still.get(), picture.data, picture.size);
    if (written == static_cast<ssize_t>(picture.size)) return file;
    const int error = written < 0 ? errno : ENOSPC;
    ::unlink(file.c_str());  // rather none than half of one
    throw WriteFailure(file, error);
}

}  // namespace

fs::path write_still(const fs::path& file) {
    const auto key_frame = last_key_frame(file);
    const MovieFile movie(file);
    if (movie.video().codecpar->codec_id == AV_CODEC_ID_MJPEG)
        return save({key_frame->data, static_cast<std::size_t>(key_frame->size)}, file, ".jpg");
    const Bytes png = png_of(file, movie, *key_frame);
    return save({png.data(), png.size()}, file, ".png");
}

}  // namespace plendix
