#include "serve/recorded_frames.h"

#include <new>

#include "usage.h"

namespace plendix {
namespace {

void require(int result, const std::filesystem::path& movie) {
    if (result < 0) throw Failure("'" + movie.string() + "' cannot be played: " + libav_text(result));
}

}  // namespace

RecordedFrames::RecordedFrames(const std::filesystem::path& movie, int camera, std::int64_t since_start_ms)
    : movie_(movie),
      camera_(camera),
      jpeg_(movie_.video().codecpar->codec_id == AV_CODEC_ID_MJPEG),
      packet_(av_packet_alloc()) {
    if (!packet_) throw std::bad_alloc();
    if (since_start_ms > 0) movie_.seek(since_start_ms);
    std::filesystem::path motion = movie;
    if (std::filesystem::exists(motion.replace_extension(".motion"))) motion_.emplace(motion);
    if (jpeg_) return;
    AVBSFContext* filter = nullptr;
    require(av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter), movie);
    filter_.reset(filter);
    require(avcodec_parameters_copy(filter->par_in, movie_.video().codecpar), movie);
    filter->time_base_in = movie_.video().time_base;
    require(av_bsf_init(filter), movie);
}

/// The next picture into packet_; false at the end.
bool RecordedFrames::read() {
    if (!movie_.read(*packet_)) return false;
    if (jpeg_) return true;
    require(av_bsf_send_packet(filter_.get(), packet_.get()), movie_.path());
    require(av_bsf_receive_packet(filter_.get(), packet_.get()), movie_.path());
    return true;
}

/// Pictures and records come in the same order.
MotionZones RecordedFrames::zones_at(std::int64_t time_ms) {
    while (motion_ && next_motion_ < motion_->size()) {
        const MotionRecord record = motion_->record(next_motion_);
        if (record.since_start_ms > time_ms) break;
        ++next_motion_;
        if (record.since_start_ms == time_ms) return record.zones;
    }
    return {};
}

std::shared_ptr<Frame> RecordedFrames::next() {
    if (!read()) return nullptr;
    const std::int64_t time_ms = av_rescale_q(packet_->pts, movie_.video().time_base, {1, 1000});
    auto frame = std::make_shared<Frame>();
    frame->camera = camera_;
    frame->codec = jpeg_ ? FrameCodec::jpeg : FrameCodec::h264;
    frame->key = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
    frame->arrival_ms = time_ms;
    frame->time_ms = movie_.start_ms() + time_ms;
    frame->zones = zones_at(time_ms);
    frame->motion = frame->zones != MotionZones{};
    frame->data.assign(packet_->data, packet_->data + packet_->size);
    av_packet_unref(packet_.get());
    return frame;
}

}  // namespace plendix
