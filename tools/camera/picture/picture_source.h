// What a camera pictures, coded and described in the frame trailer.
#pragma once

#include <array>
#include <cstdint>

#include "camera/picture/motion.h"
#include "camera/wire/request_name.h"
#include "camera/wire/transfer.h"
#include "camera/wire/udp.h"

namespace plendix::camera {

/// The camera's state that shows in its pictures.
struct Conditions {
    std::array<std::uint8_t, 6> mac{};
    Area sensor;
    MotionSettings motion;
};

/// Pictures of one camera. Used by one thread.
class PictureSource {
public:
    PictureSource() = default;
    virtual ~PictureSource() = default;
    PictureSource(const PictureSource&) = delete;
    PictureSource& operator=(const PictureSource&) = delete;

    /// A JPEG picture, or the next picture of the client's H.264 group. Another stream, and a
    /// request that says so, begins a group with a key frame. Throws Refused and Failure.
    virtual Answer next(const PictureRequest& request, const Endpoint& client,
                        const Conditions& conditions) = 0;
    /// The last picture did not reach its client: its group cannot go on.
    virtual void end_group() = 0;
};

/// The request with the part of the area that is pictured: whole pixels at half resolution, and
/// for H.264 whole macroblocks, because the client's parameter sets know no cropping. The trailer
/// reports it. Throws Refused when too little is left.
PictureRequest fitted(const PictureRequest& request);

Bytes make_trailer(const PictureRequest& fitted, const Conditions& conditions, const Activity& activity,
                   bool key);

}  // namespace plendix::camera
