#include "live/transport_stream.h"

#include <new>

#include "usage.h"

namespace plendix {
namespace {

constexpr int buffer_bytes = 188 * 170;  // whole packets, some 32 KB

void require(int result) {
    if (result < 0) throw Failure("cannot make MPEG-TS: " + libav_text(result));
}

}  // namespace

void TransportStream::FreeOutput::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
    avformat_free_context(context);
}

TransportStream::TransportStream() : packet_(av_packet_alloc()) {
    AVFormatContext* context = nullptr;
    require(avformat_alloc_output_context2(&context, nullptr, "mpegts", nullptr));
    context_.reset(context);
    auto* buffer = static_cast<unsigned char*>(av_malloc(buffer_bytes));
    if (buffer == nullptr || !packet_) throw std::bad_alloc();
    context->pb = avio_alloc_context(buffer, buffer_bytes, 1, this, nullptr, collect, nullptr);
    if (context->pb == nullptr) av_free(buffer);
    if (context->pb == nullptr) throw std::bad_alloc();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->max_delay = 0;  // a picture is shown when it comes
}

int TransportStream::collect(void* stream, std::uint8_t* data, int size) {
    Bytes& output = static_cast<TransportStream*>(stream)->output_;
    output.insert(output.end(), data, data + size);
    return size;
}

void TransportStream::open(const PictureFormat& format) {
    AVStream* video = avformat_new_stream(context_.get(), nullptr);
    if (video == nullptr) throw std::bad_alloc();
    video->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    video->codecpar->codec_id = AV_CODEC_ID_H264;
    video->codecpar->width = format.width;
    video->codecpar->height = format.height;
    require(avformat_write_header(context_.get(), nullptr));  // what it writes goes with the first picture
    open_ = true;
}

/// Parameter sets stand before every key frame: a decoder learns of others there.
void TransportStream::begin(const PictureFormat& format, std::int64_t /*start_ms*/) {
    if (format.codec != FrameCodec::h264) throw Failure("MPEG-TS has no JPEG pictures");
    sets_ = format.parameter_sets;
    if (!open_) open(format);
}

const Pieces& TransportStream::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    access_.assign({0, 0, 0, 1, nal_delimiter, 0xF0});  // pictures of any type
    if (key) access_.insert(access_.end(), sets_.begin(), sets_.end());
    for (const Piece& unit : picture) {
        access_.insert(access_.end(), {0, 0, 0, 1});
        access_.insert(access_.end(), unit.data, unit.data + unit.size);
    }
    packet_->data = access_.data();
    packet_->size = static_cast<int>(access_.size());
    packet_->flags = key ? AV_PKT_FLAG_KEY : 0;
    packet_->pts = packet_->dts = av_rescale_q(time_ms, {1, 1000}, context_->streams[0]->time_base);
    require(av_write_frame(context_.get(), packet_.get()));
    avio_flush(context_->pb);
    sent_.swap(output_);
    output_.clear();
    pieces_.assign(1, {sent_.data(), sent_.size()});
    return pieces_;
}

}  // namespace plendix
