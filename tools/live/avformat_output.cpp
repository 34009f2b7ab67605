#include "live/avformat_output.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "usage.h"

namespace plendix {
namespace {

constexpr int buffer_bytes = 188 * 170;  // whole packets of MPEG-TS, some 32 KB

}  // namespace

void AvformatOutput::FreeOutput::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
    avformat_free_context(context);
}

void AvformatOutput::require(int result) const {
    if (result < 0) throw Failure("cannot make " + name_ + ": " + libav_text(result));
}

AvformatOutput::AvformatOutput(const char* name) : name_(name), packet_(av_packet_alloc()) {
    AVFormatContext* context = nullptr;
    require(avformat_alloc_output_context2(&context, nullptr, name, nullptr));
    context_.reset(context);
    auto* buffer = static_cast<unsigned char*>(av_malloc(buffer_bytes));
    if (buffer == nullptr || !packet_) throw std::bad_alloc();
    context->pb = avio_alloc_context(buffer, buffer_bytes, 1, this, nullptr, collect, nullptr);
    if (context->pb == nullptr) av_free(buffer);
    if (context->pb == nullptr) throw std::bad_alloc();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->max_delay = 0;  // a picture is shown when it comes
}

int AvformatOutput::collect(void* output, std::uint8_t* data, int size) {
    Bytes& bytes = static_cast<AvformatOutput*>(output)->output_;
    bytes.insert(bytes.end(), data, data + size);
    return size;
}

void AvformatOutput::open(const PictureFormat& format, bool global, const std::string& options) {
    AVStream* video = avformat_new_stream(context_.get(), nullptr);
    if (video == nullptr) throw std::bad_alloc();
    AVCodecParameters& codec = *video->codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.codec_id = AV_CODEC_ID_H264;
    codec.width = format.width;
    codec.height = format.height;
    if (global) {
        const std::size_t size = format.parameter_sets.size();
        codec.extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        if (codec.extradata == nullptr) throw std::bad_alloc();
        codec.extradata_size = static_cast<int>(size);
        std::copy(format.parameter_sets.begin(), format.parameter_sets.end(), codec.extradata);
    }
    AVDictionary* settings = nullptr;
    av_dict_parse_string(&settings, options.c_str(), "=", ",", 0);
    const int result = avformat_write_header(context_.get(), &settings);
    av_dict_free(&settings);
    require(result);
    open_ = true;
}

void AvformatOutput::write(const Bytes& access_unit, bool key, std::int64_t time_ms,
                           std::int64_t duration_ms) {
    const AVRational base = context_->streams[0]->time_base;
    packet_->data = const_cast<std::uint8_t*>(access_unit.data());  // libav's type; it only reads
    packet_->size = static_cast<int>(access_unit.size());
    packet_->flags = key ? AV_PKT_FLAG_KEY : 0;
    packet_->pts = packet_->dts = av_rescale_q(time_ms, {1, 1000}, base);
    packet_->duration = av_rescale_q(duration_ms, {1, 1000}, base);
    require(av_write_frame(context_.get(), packet_.get()));
}

void AvformatOutput::flush() {
    require(av_write_frame(context_.get(), nullptr));
}

const Bytes& AvformatOutput::take() {
    avio_flush(context_->pb);
    taken_.swap(output_);
    output_.clear();
    return taken_;
}

void gather_access_unit(const Pieces& units, const Bytes& parameter_sets, bool delimiter,
                        Bytes& access_unit) {
    access_unit.clear();
    if (delimiter) access_unit.assign({0, 0, 0, 1, nal_delimiter, 0xF0});  // pictures of any type
    access_unit.insert(access_unit.end(), parameter_sets.begin(), parameter_sets.end());
    for (const Piece& unit : units) {
        access_unit.insert(access_unit.end(), {0, 0, 0, 1});
        access_unit.insert(access_unit.end(), unit.data, unit.data + unit.size);
    }
}

}  // namespace plendix
