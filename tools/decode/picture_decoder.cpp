#include "decode/picture_decoder.h"

#include <algorithm>
#include <limits>
#include <new>

#include "host/still_image.h"
#include "usage.h"

namespace plendix {
namespace {

/// "[h264 @ 0x55732f8c7b80] " tells nobody anything.
std::string without_prefix(const std::string& line) {
    const std::size_t end = line.find("] ");
    return line.rfind('[', 0) == 0 && end != std::string::npos ? line.substr(end + 2) : line;
}

}  // namespace

PictureDecoder::PictureDecoder(AVCodecID codec) : decoder_(strict_decoder(codec)) {
    if (!decoder_) throw Failure("this libavcodec has no decoder for the camera's pictures");
}

std::string PictureDecoder::feed(const link::Bytes& picture) {
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    if (!packet || picture.size() > static_cast<std::size_t>(std::numeric_limits<int>::max() / 2) ||
        av_new_packet(packet.get(), static_cast<int>(picture.size())) < 0)
        throw std::bad_alloc();
    std::copy(picture.begin(), picture.end(), packet->data);
    return decode(packet.get());
}

std::string PictureDecoder::decode(const AVPacket* packet) {
    complaints_.forget();
    int result = avcodec_send_packet(decoder_.get(), packet);
    bool damaged = false;
    while (result >= 0) {
        LibavPointer<AVFrame> frame(av_frame_alloc());
        if (!frame) throw std::bad_alloc();
        result = avcodec_receive_frame(decoder_.get(), frame.get());
        if (result < 0) break;
        damaged = damaged || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame->decode_error_flags != 0;
        pictures_.push_back(std::move(frame));
    }
    if (complaints_.count() > 0) return without_prefix(complaints_.first());
    if (damaged) return "a damaged picture";
    return result == AVERROR(EAGAIN) || result == AVERROR_EOF ? "" : libav_text(result);
}

}  // namespace plendix
