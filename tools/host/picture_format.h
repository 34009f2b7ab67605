// What a frame says about itself: size and parameter sets, and its bytes as a file keeps them.
#pragma once

#include "host/frame.h"

namespace plendix {

/// Bytes in memory of someone else.
struct Piece {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};
using Pieces = std::vector<Piece>;

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

/// Types of units, in the low five bits of their first byte.
enum NalType : unsigned { nal_sps = 7, nal_pps = 8, nal_delimiter = 9 };

inline unsigned unit_type(const Piece& unit) {
    return *unit.data & 0x1FU;
}

/// The units of a byte stream (ITU-T H.264 Annex B) without start codes, in the stream's memory.
void split_units(const Bytes& stream, Pieces& units);

/// One H.264 frame of the driver, taken apart.
struct H264Frame {
    Bytes parameter_sets;  // with start codes; empty when the frame has none
    Pieces picture;        // the units of everything else, in the memory of the stream
};

/// Splits a byte stream into `frame`, whose memory is used again. The driver ends every frame with the
/// delimiter of the access unit that follows. A file that delimits the pictures itself needs none.
void split_h264(const Bytes& stream, H264Frame& frame);

/// Reads the size from the parameter sets of a key frame. Not usable without them.
PictureFormat h264_format(const H264Frame& frame);

}  // namespace plendix
