#include "record/clip_source.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "record/segment_files.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

PictureFormat format_of(const MovieFile& movie) {
    const AVCodecParameters& parameters = *movie.video().codecpar;
    PictureFormat format;
    format.codec = parameters.codec_id == AV_CODEC_ID_H264 ? FrameCodec::h264 : FrameCodec::jpeg;
    format.width = parameters.width;
    format.height = parameters.height;
    if (format.codec == FrameCodec::h264 && parameters.extradata_size > 0)
        format.parameter_sets.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
    return format;
}

/// Nothing when the segment has no picture yet, or was removed by the recorder in the meantime.
std::optional<ClipSource> open_source(const fs::path& file) {
    ClipSource source;
    source.movie = file;
    try {
        source.playable = playable_part(file);
        if (source.playable.bytes == 0) return std::nullopt;
        const MovieFile movie(file);
        source.start_ms = movie.start_ms();
        source.format = format_of(movie);
    } catch (const Failure&) {
        if (!fs::exists(file)) return std::nullopt;
        throw;
    }
    return source;
}

}  // namespace

std::vector<ClipSource> clip_sources(const ClipPlan& plan) {
    std::vector<ClipSource> sources;
    for (const SegmentName& name :
         segments_near(plan.folder, plan.camera, ".mkv", plan.from_ms, plan.to_ms)) {
        auto source = open_source(plan.folder / (stem_path(name).string() + ".mkv"));
        if (source && source->start_ms < plan.to_ms) sources.push_back(std::move(*source));
    }
    const auto earlier = [](const ClipSource& a, const ClipSource& b) { return a.start_ms < b.start_ms; };
    std::stable_sort(sources.begin(), sources.end(), earlier);
    const auto after = std::find_if(sources.begin(), sources.end(),
                                    [&](const ClipSource& source) { return source.start_ms > plan.from_ms; });
    if (after - sources.begin() > 1) sources.erase(sources.begin(), after - 1);
    return sources;
}

ClipReader::ClipReader(const ClipSource& source, std::int64_t from_ms)
    : source_(source), movie_(source.movie), packet_(av_packet_alloc()) {
    if (!packet_) throw std::bad_alloc();
    const std::int64_t skipped_ms = from_ms - source.start_ms;
    if (skipped_ms > 0 && !movie_.seek(skipped_ms)) movie_ = MovieFile(source.movie);
}

bool ClipReader::next() {
    try {
        if (!movie_.read(*packet_)) return false;
    } catch (const Failure&) {
        if (source_.playable.closed) throw;
        return false;  // a picture that is just being written
    }
    return packet_->pos < 0 || static_cast<std::uint64_t>(packet_->pos) < source_.playable.bytes;
}

std::int64_t ClipReader::time_ms() const {
    return source_.start_ms + av_rescale_q(packet_->pts, movie_.video().time_base, {1, 1000});
}

bool ClipReader::key() const {
    return (packet_->flags & AV_PKT_FLAG_KEY) != 0;
}

Pieces ClipReader::picture() const {
    return {{packet_->data, static_cast<std::size_t>(packet_->size)}};
}

}  // namespace plendix
