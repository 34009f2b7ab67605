#include "record/matroska_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "ffmpeg.h"
#include "host/event_log.h"
#include "record/write_failure.h"

namespace plendix {
namespace {

constexpr AVRational milliseconds{1, 1000};
constexpr int io_buffer_bytes = 4096;  // for headers: whole frames go past it

int on_write(void* file, std::uint8_t* data, int size) {
    const int error = static_cast<GrowingFile*>(file)->write(data, static_cast<std::size_t>(size));
    return error == 0 ? size : AVERROR(error);
}

std::int64_t on_seek(void* opaque, std::int64_t offset, int whence) {
    auto* file = static_cast<GrowingFile*>(opaque);
    if (whence == AVSEEK_SIZE) return file->size();
    if (whence != SEEK_SET) return AVERROR(EINVAL);
    file->seek(offset);
    return offset;
}

void set_parameter_sets(AVCodecParameters& parameters, const Bytes& sets) {
    if (sets.empty()) return;
    const std::size_t padded = sets.size() + AV_INPUT_BUFFER_PADDING_SIZE;
    parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(padded));
    if (parameters.extradata == nullptr) throw std::bad_alloc();
    std::memcpy(parameters.extradata, sets.data(), sets.size());
    parameters.extradata_size = static_cast<int>(sets.size());
}

}  // namespace

MatroskaWriter::MatroskaWriter(const std::filesystem::path& file, const PictureFormat& format,
                               std::int64_t start_ms)
    : file_(file) {
    try {
        open(format, start_ms);
    } catch (...) {
        release();
        std::error_code ignored;
        std::filesystem::remove(file_.path(), ignored);  // there is no frame in it
        throw;
    }
}

MatroskaWriter::~MatroskaWriter() {
    try {
        close();
    } catch (const WriteFailure&) {  // NOLINT(bugprone-empty-catch): without an index, then
    }
}

void MatroskaWriter::open(const PictureFormat& format, std::int64_t start_ms) {
    require(avformat_alloc_output_context2(&context_, nullptr, "matroska", nullptr), "create");
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(io_buffer_bytes));
    io_ = avio_alloc_context(buffer, io_buffer_bytes, 1, &file_, nullptr, on_write, on_seek);
    if (io_ == nullptr) throw std::bad_alloc();
    io_->direct = 1;
    context_->pb = io_;
    context_->flags |= AVFMT_FLAG_FLUSH_PACKETS | AVFMT_FLAG_CUSTOM_IO;
    av_dict_set(&context_->metadata, "creation_time", utc_text(start_ms).c_str(), 0);
    add_track(format);
    require(avformat_write_header(context_, nullptr), "write to");
    require(av_write_frame(context_, nullptr), "write to");
    require(io_->error, "write to");
    file_.keep();
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
    if (context_ == nullptr) throw WriteFailure(path(), EBADF);
    last_ms_ = std::max(last_ms_ + 1, time_ms);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    // Reference counted, so that the muxer does not copy it; the bytes stay the caller's.
    packet->buf = av_buffer_create(
        const_cast<std::uint8_t*>(picture.data()), picture.size(), [](void*, std::uint8_t*) {}, nullptr,
        AV_BUFFER_FLAG_READONLY);
    if (packet->buf == nullptr) throw std::bad_alloc();
    packet->data = packet->buf->data;
    packet->size = static_cast<int>(picture.size());
    packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    packet->pts = av_rescale_q(last_ms_, milliseconds, context_->streams[0]->time_base);
    packet->dts = packet->pts;
    write_packet(*packet);
}

void MatroskaWriter::write_packet(AVPacket& packet) {
    try {
        require(av_write_frame(context_, &packet), "write to");
        require(av_write_frame(context_, nullptr), "write to");  // ends the cluster
        require(io_->error, "write to");
        file_.keep();
        ++frames_;
    } catch (...) {
        file_.undo();
        file_.hold_back();  // whatever the muxer still has to say goes nowhere
        av_write_trailer(context_);
        release();
        throw;
    }
}

void MatroskaWriter::close() {
    if (context_ == nullptr) return;
    file_.hold_back();
    av_write_trailer(context_);
    avio_flush(io_);
    release();
    if (const int error = file_.apply(); error != 0) {
        file_.undo();
        throw WriteFailure(path(), error);
    }
}

void MatroskaWriter::release() {
    avformat_free_context(context_);
    context_ = nullptr;
    if (io_ != nullptr) av_freep(&io_->buffer);
    avio_context_free(&io_);
}

void MatroskaWriter::require(int result, const char* what) const {
    if (result >= 0) return;
    const int error = AVUNERROR(result);
    if (error > 0 && error < 4096) throw WriteFailure(path(), error);
    throw Failure(std::string("cannot ") + what + " '" + path().string() + "': " + libav_text(result));
}

}  // namespace plendix
