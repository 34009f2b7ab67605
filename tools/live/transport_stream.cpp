#include "live/transport_stream.h"

#include "usage.h"

namespace plendix {

/// Parameter sets stand before every key frame: a decoder learns of others there.
void TransportStream::begin(const PictureFormat& format, std::int64_t /*start_ms*/) {
    if (format.codec != FrameCodec::h264) throw Failure("MPEG-TS has no JPEG pictures");
    sets_ = format.parameter_sets;
    if (!output_.is_open()) output_.open(format, false);  // its header goes with the first picture
}

const Pieces& TransportStream::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    gather_access_unit(picture, key ? sets_ : Bytes{}, true, access_);
    output_.write(access_, key, time_ms);
    return collected();
}

const Pieces& TransportStream::collected() {
    const Bytes& bytes = output_.take();
    pieces_.clear();
    if (!bytes.empty()) pieces_.push_back({bytes.data(), bytes.size()});
    return pieces_;
}

}  // namespace plendix
