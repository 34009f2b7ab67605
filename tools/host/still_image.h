// A coded picture decoded, and a decoded one as an image file in memory. Pure functions.
#pragma once

#include "ffmpeg.h"
#include "host/frame.h"

namespace plendix {

enum class StillFormat { jpeg, png };

/// A decoder that refuses what it would otherwise repair silently; `parameters` where a file has them.
/// Null where there is none.
LibavPointer<AVCodecContext> strict_decoder(AVCodecID codec, const AVCodecParameters* parameters = nullptr);

/// The one picture of a packet; null when the decoder finds a fault in it. The decoder is used up.
LibavPointer<AVFrame> decode_still(AVCodecContext& decoder, const AVPacket& packet);
/// The same of a JPEG picture or an H.264 key frame as the driver delivers them.
LibavPointer<AVFrame> decode_still(FrameCodec codec, const Bytes& picture);

/// Throws Failure where libav does not want to.
Bytes encode_still(const AVFrame& picture, StillFormat format);

}  // namespace plendix
