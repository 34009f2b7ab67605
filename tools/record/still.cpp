#include "record/still.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "host/descriptor.h"
#include "record/movie_file.h"
#include "record/write_failure.h"

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

LibavPointer<AVFrame> decode(const MovieFile& movie, const AVPacket& packet) {
    const auto decoder = movie.strict_decoder();
    LibavPointer<AVFrame> frame(av_frame_alloc());
    const bool decoded = frame && avcodec_send_packet(decoder.get(), &packet) >= 0 &&
                         avcodec_send_packet(decoder.get(), nullptr) >= 0 &&
                         avcodec_receive_frame(decoder.get(), frame.get()) >= 0;
    require(decoded, movie.path());
    return frame;
}

LibavPointer<AVFrame> to_rgb(const AVFrame& source, const fs::path& movie) {
    LibavPointer<AVFrame> rgb(av_frame_alloc());
    if (!rgb) throw std::bad_alloc();
    rgb->format = AV_PIX_FMT_RGB24;
    rgb->width = source.width;
    rgb->height = source.height;
    require(av_frame_get_buffer(rgb.get(), 0) >= 0, movie);
    const LibavPointer<SwsContext> scaler(
        sws_getContext(source.width, source.height, static_cast<AVPixelFormat>(source.format), rgb->width,
                       rgb->height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr));
    require(scaler != nullptr, movie);
    sws_scale(scaler.get(), source.data, source.linesize, 0, source.height, rgb->data, rgb->linesize);
    return rgb;
}

LibavPointer<AVPacket> encode_png(const AVFrame& rgb, const fs::path& movie) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    const LibavPointer<AVCodecContext> encoder(avcodec_alloc_context3(codec));
    LibavPointer<AVPacket> packet(av_packet_alloc());
    require(codec != nullptr && encoder && packet, movie);
    encoder->width = rgb.width;
    encoder->height = rgb.height;
    encoder->pix_fmt = AV_PIX_FMT_RGB24;
    encoder->time_base = {1, 1};
    require(avcodec_open2(encoder.get(), codec, nullptr) >= 0, movie);
    require(avcodec_send_frame(encoder.get(), &rgb) >= 0, movie);
    require(avcodec_receive_packet(encoder.get(), packet.get()) >= 0, movie);
    return packet;
}

fs::path save(const AVPacket& picture, fs::path file, const char* extension) {
    file.replace_extension(extension);
    const Descriptor still(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!still) throw WriteFailure(file, errno);
    const ssize_t written = ::write(still.get(), picture.data, static_cast<std::size_t>(picture.size));
    if (written == picture.size) return file;
    const int error = written < 0 ? errno : ENOSPC;
    ::unlink(file.c_str());  // rather none than half of one
    throw WriteFailure(file, error);
}

}  // namespace

fs::path write_still(const fs::path& file) {
    const auto key_frame = last_key_frame(file);
    const MovieFile movie(file);
    if (movie.video().codecpar->codec_id == AV_CODEC_ID_MJPEG) return save(*key_frame, file, ".jpg");
    const auto rgb = to_rgb(*decode(movie, *key_frame), file);
    return save(*encode_png(*rgb, file), file, ".png");
}

}  // namespace plendix
