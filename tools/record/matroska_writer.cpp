#include "record/matroska_writer.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "ffmpeg.h"
#include "host/event_log.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr AVRational milliseconds{1, 1000};

void set_parameter_sets(AVCodecParameters& parameters, const Bytes& sets) {
    if (sets.empty()) return;
    const std::size_t padded = sets.size() + AV_INPUT_BUFFER_PADDING_SIZE;
    parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(padded));
    if (parameters.extradata == nullptr) throw std::bad_alloc();
    std::memcpy(parameters.extradata, sets.data(), sets.size());
    parameters.extradata_size = static_cast<int>(sets.size());
}

}  // namespace

MatroskaWriter::MatroskaWriter(std::filesystem::path file, const PictureFormat& format, std::int64_t start_ms)
    : path_(std::move(file)), start_ms_(start_ms) {
    try {
        require(avformat_alloc_output_context2(&context_, nullptr, "matroska", path_.c_str()), "create");
        context_->flags |= AVFMT_FLAG_FLUSH_PACKETS;
        av_dict_set(&context_->metadata, "creation_time", utc_text(start_ms).c_str(), 0);
        add_track(format);
        require(avio_open(&context_->pb, path_.c_str(), AVIO_FLAG_WRITE), "create");
        require(avformat_write_header(context_, nullptr), "write to");
        header_written_ = true;
        require(av_write_frame(context_, nullptr), "write to");
    } catch (...) {
        close();
        throw;
    }
}

MatroskaWriter::~MatroskaWriter() {
    close();
}

void MatroskaWriter::add_track(const PictureFormat& format) {
    AVStream* stream = avformat_new_stream(context_, nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    stream->time_base = milliseconds;
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = format.codec == FrameCodec::jpeg ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_H264;
    parameters.width = format.width;
    parameters.height = format.height;
    set_parameter_sets(parameters, format.parameter_sets);
}

void MatroskaWriter::write(const Bytes& picture, bool key, std::int64_t time_ms) {
    last_ms_ = std::max(last_ms_, time_ms - start_ms_);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    require(av_new_packet(packet.get(), static_cast<int>(picture.size())), "write to");
    std::memcpy(packet->data, picture.data(), picture.size());
    packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    packet->pts = av_rescale_q(last_ms_, milliseconds, context_->streams[0]->time_base);
    packet->dts = packet->pts;
    require(av_write_frame(context_, packet.get()), "write to");
    require(av_write_frame(context_, nullptr), "write to");  // ends the cluster
    require(context_->pb->error, "write to");
}

void MatroskaWriter::close() {
    if (context_ == nullptr) return;
    if (header_written_) av_write_trailer(context_);
    avio_closep(&context_->pb);
    avformat_free_context(context_);
    context_ = nullptr;
}

void MatroskaWriter::require(int result, const char* what) const {
    if (result >= 0) return;
    throw Failure(std::string("cannot ") + what + " '" + path_.string() + "': " + libav_text(result));
}

}  // namespace plendix
