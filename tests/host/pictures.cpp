#include "pictures.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <cstdlib>
#include <cstring>

namespace {

void draw(AVFrame& frame, int moment) {
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame.height : frame.height / 2;
        for (int row = 0; row < rows; ++row) {
            auto* line = frame.data[plane] + row * frame.linesize[plane];
            std::memset(line, (row * 5 + moment * 9 + plane * 40) & 0xFF, size_t(frame.linesize[plane]));
            line[(moment * 7) % (frame.width / 2)] = 255;
        }
    }
}

}  // namespace

std::vector<std::vector<std::uint8_t>> encode_pictures(bool h264, int count, int width, int height) {
    const AVCodec* codec =
        h264 ? avcodec_find_encoder_by_name("libx264") : avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    encoder->width = width;
    encoder->height = height;
    encoder->pix_fmt = h264 ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUVJ420P;
    encoder->time_base = {1, 25};
    encoder->gop_size = 10;
    encoder->max_b_frames = 0;
    if (h264) {
        av_opt_set(encoder->priv_data, "tune", "zerolatency", 0);
        av_opt_set(encoder->priv_data, "x264-params", "scenecut=0", 0);
    }
    if (avcodec_open2(encoder, codec, nullptr) < 0) std::abort();

    AVFrame* frame = av_frame_alloc();
    frame->format = encoder->pix_fmt;
    frame->width = width;
    frame->height = height;
    AVPacket* packet = av_packet_alloc();
    std::vector<std::vector<std::uint8_t>> pictures;
    for (int moment = 0; moment < count; ++moment) {
        av_frame_get_buffer(frame, 0);
        frame->pts = moment;
        draw(*frame, moment);
        if (avcodec_send_frame(encoder, frame) < 0 || avcodec_receive_packet(encoder, packet) < 0)
            std::abort();
        pictures.emplace_back(packet->data, packet->data + packet->size);
        if (h264) pictures.back().insert(pictures.back().end(), {0, 0, 1, 9, 0x10});
        av_packet_unref(packet);
        for (auto& buffer : frame->buf)
            av_buffer_unref(&buffer);
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    return pictures;
}
