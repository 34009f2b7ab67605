// A camera's live pictures as responses of the HTTP server: for programs, for the page, for its wall.
#pragma once

#include <memory>

#include "http/stream.h"
#include "live/frame_parts.h"
#include "live/live_stream.h"
#include "live/mp4_fragments.h"
#include "serve/camera_board.h"
#include "serve/thumbnailer.h"
#include "serve/viewer.h"

namespace plendix {

/// A stream in a format of other programs. It ends where the format cannot go on.
class FormatResponse : public PieceStream {
public:
    FormatResponse(StreamFormat format, std::shared_ptr<Viewer> viewer)
        : viewer_(std::move(viewer)), live_(format) {}

    const char* media_type() const { return live_.media_type(); }

protected:
    Pieces next() override;

private:
    const std::shared_ptr<Viewer> viewer_;
    LiveStream live_;
    FramePointer frame_;  // that is being sent
};

/// Messages for the page's large picture: JPEG as it comes, H.264 in fragments of MP4.
class PageResponse : public PieceStream {
public:
    /// Live: where nothing comes, the board tells why.
    PageResponse(int camera, std::shared_ptr<Viewer> viewer, const CameraBoard& board)
        : camera_(camera), viewer_(std::move(viewer)), board_(&board) {}
    /// A recording, to its end.
    explicit PageResponse(std::shared_ptr<Viewer> viewer) : viewer_(std::move(viewer)) {}

protected:
    Pieces next() override;

private:
    Pieces begin();
    Pieces picture();
    Pieces pause();
    std::int64_t time_of_stream();

    const int camera_ = 0;
    const std::shared_ptr<Viewer> viewer_;
    const CameraBoard* const board_ = nullptr;
    FrameParts parts_;
    std::unique_ptr<Mp4Fragments> fragments_;
    FramePointer frame_;  // that is being sent
    bool announced_ = false;
    std::int64_t start_ms_ = -1;
    std::int64_t last_ms_ = -1;
    std::int64_t said_ms_ = 0;  // monotonic: when anything was sent last
};

/// Messages for the page's wall; the first tells its name.
class WallResponse : public PieceStream {
public:
    WallResponse(std::string name, std::shared_ptr<Wall> wall)
        : name_(std::move(name)), wall_(std::move(wall)) {}

protected:
    Pieces next() override;

private:
    const std::string name_;
    const std::shared_ptr<Wall> wall_;
    bool named_ = false;
};

}  // namespace plendix
