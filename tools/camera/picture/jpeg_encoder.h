// Baseline JPEG as the cameras code it: 4:2:2, a restart marker every 16 MCUs, quantisation tables
// of their own, the Huffman tables of ITU-T T.81 Annex K.
#pragma once

#include "camera/picture/picture.h"
#include "camera/wire/packet.h"

namespace plendix::camera {

class JpegEncoder {
public:
    /// A picture to draw into, padded to whole MCUs; valid until the next call.
    const Picture& begin(const Size& size);
    /// The whole file. `quality` 0 to 26; 19 takes the base tables unchanged, more is finer.
    Bytes encode(int quality);

private:
    Size size_{};
    Picture picture_;
    Bytes samples_;
};

/// Where the payload of a JPEG file begins: two bytes, over which the client puts the end of its own
/// header, then the entropy-coded data.
std::size_t jpeg_payload(const Bytes& file);

}  // namespace plendix::camera
