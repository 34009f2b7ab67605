// Pictures drawn and coded one by one, for one camera: with its number and the clock in them.
#pragma once

#include <deque>
#include <memory>

#include "camera/picture/h264_encoder.h"
#include "camera/picture/jpeg_encoder.h"
#include "camera/picture/picture_source.h"

namespace plendix::camera {

/// The H.264 group belongs to one client: any other gets key frames.
class LivePictures : public PictureSource {
public:
    explicit LivePictures(unsigned camera) : camera_(camera) {}

    Answer next(const PictureRequest& request, const Endpoint& client, const Conditions& conditions) override;
    void end_group() override { h264_.reset(); }

private:
    Answer next_jpeg(const PictureRequest& request, const Conditions& conditions);
    Answer next_h264(const PictureRequest& request, const Endpoint& client, const Conditions& conditions);
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
