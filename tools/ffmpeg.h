// Owners for libav objects, and its error codes as text: for the host and for scene files.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <memory>
#include <string>

namespace plendix {

struct FreeLibavObject {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

template <class Object>
using LibavPointer = std::unique_ptr<Object, FreeLibavObject>;

inline std::string libav_text(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

}  // namespace plendix
