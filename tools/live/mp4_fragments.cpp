#include "live/mp4_fragments.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "usage.h"

namespace plendix {
namespace {

constexpr std::int64_t usual_duration_ms = 50;  // of the first picture; each other's is known by the next
constexpr std::int64_t longest_duration_ms = 1000;

/// Profile, constraints and level are the three bytes behind the first of the sequence parameter set.
std::string codec_name_of(const Bytes& parameter_sets) {
    Pieces units;
    split_units(parameter_sets, units);
    for (const Piece& unit : units) {
        if (unit_type(unit) != nal_sps || unit.size < 4) continue;
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "avc1.%02x%02x%02x", unit.data[1], unit.data[2],
                      unit.data[3]);
        return text.data();
    }
    throw Failure("an H.264 stream without a sequence parameter set");
}

}  // namespace

Mp4Fragments::Mp4Fragments() : output_("mp4") {}

void Mp4Fragments::begin(const PictureFormat& format, std::int64_t /*start_ms*/) {
    if (format.codec != FrameCodec::h264) throw Failure("MP4 has no JPEG pictures here");
    if (output_.is_open() && !(format == format_)) throw Failure("the stream's size has changed");
    if (output_.is_open()) return;
    codec_name_ = codec_name_of(format.parameter_sets);
    format_ = format;
    output_.open(format, true, "movflags=frag_custom+empty_moov+default_base_moof,use_editlist=0");
}

Bytes Mp4Fragments::take_beginning() {
    return output_.take();
}

/// A fragment leaves before the next picture tells how long its own is shown: as long as the one before. Each
/// begins where the last one ended: libavformat would put it there anyway, and not tell, and to a browser a
/// gap is a lost picture.
const Pieces& Mp4Fragments::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    const std::int64_t duration_ms =
        last_ms_ ? std::min(time_ms - *last_ms_, longest_duration_ms) : usual_duration_ms;
    begin_ms_ = last_ms_ ? end_ms_ : time_ms;
    end_ms_ = begin_ms_ + duration_ms;
    last_ms_ = time_ms;
    gather_access_unit(picture, {}, false, access_);
    output_.write(access_, key, begin_ms_, duration_ms);
    output_.flush();
    return collected();
}

const Pieces& Mp4Fragments::collected() {
    const Bytes& bytes = output_.take();
    pieces_.clear();
    if (!bytes.empty()) pieces_.push_back({bytes.data(), bytes.size()});
    return pieces_;
}

}  // namespace plendix
