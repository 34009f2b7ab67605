// One picture as the plug-in delivered it, copied once and shared by all outputs.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace plendix {

using Bytes = std::vector<std::uint8_t>;

enum class FrameCodec { jpeg, h264 };

/// Rows of zones from the top; bit 7 - c of a row is column c.
using MotionZones = std::array<std::uint8_t, 8>;

struct Frame {
    int camera = 0;  // device number, 1 to 255
    FrameCodec codec = FrameCodec::jpeg;
    bool key = false;        // a JPEG picture, or an H.264 picture that a decoder can start with
    bool motion = false;     // in a zone that the mask enables
    bool recording = false;  // a recording mark is in force
    MotionZones zones{};     // with motion, before the mask

    /// Monotonic clock at arrival: what presentation times are made of.
    std::int64_t arrival_ms = 0;
    /// UTC since 1970, as the wall clock was set then.
    std::int64_t time_ms = 0;
    /// Another number than that of the frame before: the wall clock was set in between.
    std::uint32_t clock_epoch = 0;

    /// The frame as the driver gives it: a JPEG file, or an H.264 byte stream that ends with the
    /// access unit delimiter of the next picture.
    Bytes data;
};

/// Outputs hold a frame as long as they like; its memory is used again when the last lets go.
using FramePointer = std::shared_ptr<const Frame>;

}  // namespace plendix
