// Decoding with a stock decoder that forgives nothing.
#pragma once

extern "C" {
#include <libavutil/imgutils.h>
}

#include <stdexcept>

#include "camera/wire/packet.h"
#include "ffmpeg.h"

namespace plendix::camera::test {

using Bytes = camera::Bytes;

struct Decoded {
    int width = 0, height = 0;
    Bytes samples;
    bool operator==(const Decoded& other) const { return width == other.width && samples == other.samples; }
};

/// Codec "h264" or "mjpeg", one picture each. Throws on any error that the decoder reports.
inline std::vector<Decoded> decode(const char* codec, const std::vector<Bytes>& pictures) {
    const AVCodec* decoder = avcodec_find_decoder_by_name(codec);
    const LibavPointer<AVCodecContext> context(avcodec_alloc_context3(decoder));
    const LibavPointer<AVFrame> frame(av_frame_alloc());
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    context->err_recognition = AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    context->thread_count = 1;
    int result = avcodec_open2(context.get(), decoder, nullptr);
    std::vector<Decoded> decoded;
    for (std::size_t i = 0; i <= pictures.size() && result >= 0; ++i) {
        if (i < pictures.size()) av_new_packet(packet.get(), static_cast<int>(pictures[i].size()));
        if (i < pictures.size()) std::copy(pictures[i].begin(), pictures[i].end(), packet->data);
        result = avcodec_send_packet(context.get(), i < pictures.size() ? packet.get() : nullptr);
        av_packet_unref(packet.get());
        while (result >= 0 && (result = avcodec_receive_frame(context.get(), frame.get())) >= 0) {
            const auto format = static_cast<AVPixelFormat>(frame->format);
            const int size = av_image_get_buffer_size(format, frame->width, frame->height, 1);
            decoded.push_back({frame->width, frame->height, Bytes(static_cast<std::size_t>(size))});
            av_image_copy_to_buffer(decoded.back().samples.data(), size, frame->data, frame->linesize, format,
                                    frame->width, frame->height, 1);
        }
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) result = 0;
    }
    if (result < 0) throw std::runtime_error("a picture did not decode");
    return decoded;
}

}  // namespace plendix::camera::test
