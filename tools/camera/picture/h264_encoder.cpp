#include "camera/picture/h264_encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <string>

#include "usage.h"

namespace plendix::camera {

namespace {

// The client's parameter sets fix these: CAVLC, no 8x8 transform, no weighted prediction, one
// reference, four bits of frame_num and, as follows from the B-frame settings (of which the bias
// lets none be chosen), five of picture order count. The rest saves time.
constexpr const char* coding =
    "bframes=2:b-adapt=1:b-bias=-100:b-pyramid=none:ref=1:cabac=0:8x8dct=0:weightp=0:weightb=0:"
    "scenecut=0:psy=0:slices=1:aud=0:rc-lookahead=0:sync-lookahead=0:mbtree=0:aq-mode=0:keyint=infinite";

// With a bit rate set the encoder codes quantisers relative to 26, as the parameter sets say; the
// limits below make the wanted quantiser the only one.
constexpr std::int64_t bit_rate = 20'000'000;

void check(int result, const char* what) {
    if (result < 0) throw Failure(std::string("H.264 encoder: cannot ") + what);
}

struct Slice {
    std::size_t data;
    bool key;
};

/// The picture's one slice, found behind parameter sets and SEI.
Slice find_slice(const Bytes& unit) {
    for (std::size_t i = 0; i + 3 < unit.size(); ++i) {
        if (unit[i] != 0 || unit[i + 1] != 0 || unit[i + 2] != 1) continue;
        const int type = unit[i + 3] & 31;  // ITU-T H.264 table 7-1: 1 slice, 5 slice of an IDR
        if (type == 1 || type == 5) return {i + 4, type == 5};
    }
    throw Failure("H.264 encoder: a picture without a slice");
}

}  // namespace

H264Encoder::H264Encoder(const Size& size, int qp) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr) throw Failure("this libavcodec has no libx264 encoder");
    context_ = avcodec_alloc_context3(codec);
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (context_ == nullptr || frame_ == nullptr || packet_ == nullptr) throw std::bad_alloc();
    context_->log_level_offset = 16;  // its reports on each stream are of no use here
    context_->width = frame_->width = size.width;
    context_->height = frame_->height = size.height;
    context_->pix_fmt = AV_PIX_FMT_YUV420P;
    frame_->format = AV_PIX_FMT_YUV420P;
    context_->time_base = {1, 25};
    context_->bit_rate = bit_rate;
    context_->qmin = context_->qmax = qp;
    context_->thread_count = 1;
    av_opt_set(context_->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context_->priv_data, "forced-idr", "1", 0);
    av_opt_set(context_->priv_data, "x264-params", coding, 0);
    check(avcodec_open2(context_, codec, nullptr), "open");
    check(av_frame_get_buffer(frame_, 0), "get a picture");
}

H264Encoder::~H264Encoder() {
    av_packet_free(&packet_);
    av_frame_free(&frame_);
    avcodec_free_context(&context_);
}

const Picture& H264Encoder::begin() {
    check(av_frame_make_writable(frame_), "get a picture");
    for (std::size_t i = 0; i < 3; ++i) {
        picture_.plane[i] = frame_->data[i];
        picture_.stride[i] = frame_->linesize[i];
    }
    picture_.width = frame_->width;
    picture_.height = frame_->height;
    picture_.half_chroma_rows = true;
    return picture_;
}

std::optional<CodedPicture> H264Encoder::feed(bool key) {
    frame_->pts = fed_++;
    frame_->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    check(avcodec_send_frame(context_, frame_), "take a picture");
    return receive();
}

std::optional<CodedPicture> H264Encoder::drain() {
    if (!draining_) check(avcodec_send_frame(context_, nullptr), "end a stream");
    draining_ = true;
    return receive();
}

std::optional<CodedPicture> H264Encoder::receive() {
    const int result = avcodec_receive_packet(context_, packet_);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return std::nullopt;
    check(result, "code a picture");
    CodedPicture coded;
    coded.unit.assign(packet_->data, packet_->data + packet_->size);
    av_packet_unref(packet_);
    const Slice slice = find_slice(coded.unit);
    coded.slice = slice.data;
    coded.key = slice.key;
    return coded;
}

}  // namespace plendix::camera
