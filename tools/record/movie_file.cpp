#include "record/movie_file.h"

#include <limits>

extern "C" {
#include <libavutil/parseutils.h>
}

#include "host/still_image.h"
#include "usage.h"

namespace plendix {

MovieFile::MovieFile(const std::filesystem::path& file) : path_(file) {
    AVFormatContext* context = nullptr;
    const int opened = avformat_open_input(&context, file.c_str(), nullptr, nullptr);
    context_.reset(context);
    if (opened < 0) throw Failure("cannot open '" + file.string() + "': " + libav_text(opened));
    const int index = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) throw Failure("'" + file.string() + "' has no video");
    stream_ = context->streams[index];
}

bool MovieFile::read(AVPacket& packet) {
    for (;;) {
        av_packet_unref(&packet);
        const int result = av_read_frame(context_.get(), &packet);
        if (result == AVERROR_EOF) return false;
        if (result < 0) throw Failure("'" + path_.string() + "' is damaged: " + libav_text(result));
        if (packet.stream_index == stream_->index) return true;
    }
}

bool MovieFile::seek(std::int64_t time_ms) {
    const std::int64_t time = av_rescale_q(time_ms, {1, 1000}, stream_->time_base);
    return av_seek_frame(context_.get(), stream_->index, time, AVSEEK_FLAG_BACKWARD) >= 0;
}

bool MovieFile::seek_end() {
    constexpr std::int64_t far_away = std::numeric_limits<std::int64_t>::max();
    return av_seek_frame(context_.get(), stream_->index, far_away, AVSEEK_FLAG_BACKWARD) >= 0;
}

std::int64_t MovieFile::start_ms() const {
    const AVDictionaryEntry* entry = av_dict_get(context_->metadata, "creation_time", nullptr, 0);
    std::int64_t microseconds = 0;
    if (entry == nullptr || av_parse_time(&microseconds, entry->value, 0) < 0) return 0;
    return microseconds / 1000;
}

LibavPointer<AVCodecContext> MovieFile::strict_decoder() const {
    auto decoder = plendix::strict_decoder(stream_->codecpar->codec_id, stream_->codecpar);
    if (!decoder) throw Failure("no decoder for '" + path_.string() + "'");
    return decoder;
}

}  // namespace plendix
