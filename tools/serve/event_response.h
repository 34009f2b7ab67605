// Events as they come, as Server-Sent Events (HTML standard, 9.2), and once a second what has changed of the
// cameras.
#pragma once

#include <map>
#include <string>

#include "http/stream.h"
#include "serve/camera_board.h"
#include "serve/event_feed.h"

namespace plendix {

/// The server's thread. The feed wakes it.
class EventResponse : public PieceStream {
public:
    /// Goes on behind `after`, the number of an event that the client knows.
    EventResponse(const EventFeed& feed, const CameraBoard& board, std::uint64_t after)
        : feed_(feed), board_(board), last_id_(after) {}

protected:
    Pieces next() override;

private:
    std::string beginning();
    std::string events();
    std::string cameras();

    const EventFeed& feed_;
    const CameraBoard& board_;
    std::uint64_t last_id_;
    bool begun_ = false;
    std::map<int, std::string> told_;  // of each camera
    std::int64_t next_cameras_ms_ = 0;
    std::int64_t next_comment_ms_ = 0;
};

}  // namespace plendix
