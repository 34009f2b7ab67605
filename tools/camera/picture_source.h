// What a camera pictures: draws the scene, codes it and describes it in the frame trailer.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>

#include "camera/h264_encoder.h"
#include "camera/jpeg_encoder.h"
#include "camera/motion.h"
#include "camera/request_name.h"
#include "camera/transfer.h"
#include "camera/udp.h"

namespace plendix::camera {

/// The camera's state that shows in its pictures.
struct Conditions {
    std::array<std::uint8_t, 6> mac{};
    Area sensor;
    MotionSettings motion;
};

/// A picture ready to send, and the same as the codec wrote it, with all headers.
struct Served {
    std::shared_ptr<const Answer> answer;
    Bytes original;
};

/// Pictures of one camera, coded when asked for. Used by one thread.
class PictureSource {
public:
    explicit PictureSource(unsigned camera) : camera_(camera) {}

    /// A JPEG picture, or the next picture of the H.264 group. The group belongs to one client
    /// and one stream: any other, and a request that says so, begins a new one with a key frame.
    Served next(const PictureRequest& request, const Endpoint& client, const Conditions& conditions);
    /// The last picture did not reach its client: the group cannot go on.
    void end_group() { h264_.reset(); }

private:
    Served next_jpeg(const PictureRequest& request, const Conditions& conditions);
    Served next_h264(const PictureRequest& request, const Endpoint& client, const Conditions& conditions);
    bool follows(const PictureRequest& request, const Endpoint& client) const;
    CodedPicture code(const PictureRequest& request, bool key, const Conditions& conditions,
                      Thumbnail& shown);
    Thumbnail draw(const Picture& picture, const PictureRequest& request, const Conditions& conditions,
                   std::uint64_t ahead);

    unsigned camera_;
    std::uint64_t served_ = 0;
    JpegEncoder jpeg_;
    Thumbnail last_jpeg_;
    std::unique_ptr<H264Encoder> h264_;
    std::deque<Thumbnail> waiting_;  // pictures that the H.264 encoder still holds, oldest first
    Thumbnail last_h264_;
    PictureRequest stream_;  // of the H.264 group
    Endpoint client_;
};

}  // namespace plendix::camera
