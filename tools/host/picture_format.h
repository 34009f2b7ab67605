// What a frame says about itself: size and parameter sets, and its bytes as a file keeps them.
#pragma once

#include "host/frame.h"

namespace plendix {

/// What stays the same for all frames of one file.
struct PictureFormat {
    FrameCodec codec = FrameCodec::jpeg;
    int width = 0;  // pixels; 0: the frame does not say
    int height = 0;
    Bytes parameter_sets;  // H.264: SPS and PPS with start codes

    bool usable() const { return width > 0 && height > 0; }
    bool operator==(const PictureFormat& other) const;
};

/// Reads the frame header of a JPEG picture. Not usable without one.
PictureFormat jpeg_format(const Bytes& picture);

/// One H.264 frame of the driver, taken apart.
struct H264Frame {
    Bytes parameter_sets;  // empty when the frame has none
    Bytes picture;         // everything else with start codes, without access unit delimiters
};

/// Splits a byte stream (ITU-T H.264 Annex B) into `frame`, whose memory is used again. The driver
/// ends every frame with the delimiter of the access unit that follows. A file that delimits the
/// pictures itself needs none.
void split_h264(const Bytes& stream, H264Frame& frame);

/// Reads the size from the parameter sets of a key frame. Not usable without them.
PictureFormat h264_format(const H264Frame& frame);

}  // namespace plendix
