// H.264 as the cameras code it: one slice per picture, Baseline tools, coded so that parameter sets
// which the client writes by itself describe it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "camera/picture/picture.h"
#include "camera/wire/packet.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace plendix::camera {

/// A coded picture: the access unit as the encoder wrote it, and its slice data behind the start
/// code and the NAL header byte.
struct CodedPicture {
    Bytes unit;
    std::size_t slice = 0;  // offset of the slice data, which lasts to the end of `unit`
    bool key = false;
};

/// One stream of one size (multiples of 16) and quantiser. The encoder looks ahead, so the first
/// pictures go in before one comes out.
class H264Encoder {
public:
    H264Encoder(const Size& size, int qp);
    ~H264Encoder();
    H264Encoder(const H264Encoder&) = delete;
    H264Encoder& operator=(const H264Encoder&) = delete;

    /// The picture to draw into before the next `feed`; valid until then.
    const Picture& begin();
    /// Takes the picture drawn, as a key frame when asked for, and returns the one that is ready:
    /// pictures come out in the order in which they went in.
    std::optional<CodedPicture> feed(bool key);
    /// After the last picture: those that the encoder still holds, one by one, then nothing.
    std::optional<CodedPicture> drain();

private:
    std::optional<CodedPicture> receive();

    AVCodecContext* context_ = nullptr;
    AVFrame* frame_ = nullptr;
    AVPacket* packet_ = nullptr;
    Picture picture_;
    std::int64_t fed_ = 0;
    bool draining_ = false;
};

}  // namespace plendix::camera
