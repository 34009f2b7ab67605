#include "live/matroska_stream.h"

#include "container/matroska_beginning.h"
#include "usage.h"

namespace plendix {

/// Where size or parameter sets change, decoders learn it from the pictures. No player takes a second
/// head: a track keeps its codec.
void MatroskaStream::begin(const PictureFormat& format, std::int64_t start_ms) {
    if (cluster_) {
        if (format.codec != codec_) throw Failure("Matroska does not change between JPEG and H.264");
        sets_ = format.parameter_sets;
        return;
    }
    codec_ = format.codec;
    head_ = matroska_beginning(format, start_ms, std::nullopt);
    cluster_.emplace(codec_ == FrameCodec::h264);
}

const Pieces& MatroskaStream::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    units_.clear();
    if (key) split_units(sets_, units_);
    units_.insert(units_.end(), picture.begin(), picture.end());
    const Pieces& cluster = cluster_->build(units_, key, time_ms);
    pieces_.clear();
    if (!head_sent_) pieces_.push_back({head_.data(), head_.size()});
    head_sent_ = true;
    pieces_.insert(pieces_.end(), cluster.begin(), cluster.end());
    return pieces_;
}

}  // namespace plendix
