#include "host/still_image.h"

#include <algorithm>
#include <new>

#include "usage.h"

namespace plendix {
namespace {

constexpr int finest_jpeg = 2;  // quantiser scale, 2 to 31

/// What an encoder of still images takes.
AVPixelFormat pixels_of(StillFormat format) {
    return format == StillFormat::png ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_YUVJ420P;
}

void require(bool done) {
    if (!done) throw Failure("cannot make an image file of a decoded picture");
}

LibavPointer<AVFrame> converted(const AVFrame& source, AVPixelFormat pixels) {
    LibavPointer<AVFrame> target(av_frame_alloc());
    if (!target) throw std::bad_alloc();
    target->format = pixels;
    target->width = source.width;
    target->height = source.height;
    require(av_frame_get_buffer(target.get(), 0) >= 0);
    const LibavPointer<SwsContext> scaler(
        sws_getContext(source.width, source.height, static_cast<AVPixelFormat>(source.format), target->width,
                       target->height, pixels, SWS_BILINEAR, nullptr, nullptr, nullptr));
    require(scaler != nullptr);
    sws_scale(scaler.get(), source.data, source.linesize, 0, source.height, target->data, target->linesize);
    return target;
}

LibavPointer<AVCodecContext> still_encoder(const AVFrame& picture, StillFormat format) {
    const AVCodec* codec =
        avcodec_find_encoder(format == StillFormat::png ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG);
    LibavPointer<AVCodecContext> encoder(avcodec_alloc_context3(codec));
    require(codec != nullptr && encoder);
    encoder->width = picture.width;
    encoder->height = picture.height;
    encoder->pix_fmt = pixels_of(format);
    encoder->time_base = {1, 1};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = finest_jpeg * FF_QP2LAMBDA;
    require(avcodec_open2(encoder.get(), codec, nullptr) >= 0);
    return encoder;
}

}  // namespace

LibavPointer<AVCodecContext> strict_decoder(AVCodecID id, const AVCodecParameters* parameters) {
    const AVCodec* codec = avcodec_find_decoder(id);
    LibavPointer<AVCodecContext> decoder(avcodec_alloc_context3(codec));
    if (codec == nullptr || !decoder) return nullptr;
    if (parameters != nullptr) avcodec_parameters_to_context(decoder.get(), parameters);
    decoder->thread_count = 1;
    decoder->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return nullptr;
    return decoder;
}

LibavPointer<AVFrame> decode_still(AVCodecContext& decoder, const AVPacket& packet) {
    LibavPointer<AVFrame> frame(av_frame_alloc());
    const bool decoded = frame && avcodec_send_packet(&decoder, &packet) >= 0 &&
                         avcodec_send_packet(&decoder, nullptr) >= 0 &&
                         avcodec_receive_frame(&decoder, frame.get()) >= 0;
    return decoded ? std::move(frame) : nullptr;
}

LibavPointer<AVFrame> decode_still(FrameCodec codec, const Bytes& picture) {
    const auto decoder = strict_decoder(codec == FrameCodec::jpeg ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_H264);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    if (!decoder || !packet || av_new_packet(packet.get(), static_cast<int>(picture.size())) < 0)
        return nullptr;
    std::copy(picture.begin(), picture.end(), packet->data);
    return decode_still(*decoder, *packet);
}

Bytes encode_still(const AVFrame& picture, StillFormat format) {
    const auto pixels = converted(picture, pixels_of(format));
    const auto encoder = still_encoder(picture, format);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    pixels->quality = encoder->global_quality;
    require(avcodec_send_frame(encoder.get(), pixels.get()) >= 0);
    require(avcodec_receive_packet(encoder.get(), packet.get()) >= 0);
    return Bytes(packet->data, packet->data + packet->size);
}

}  // namespace plendix
