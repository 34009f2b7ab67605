#include "serve/live_responses.h"

#include <algorithm>

#include "host/clocks.h"
#include "host/event_json.h"
#include "serve/page_message.h"
#include "usage.h"

namespace plendix {
namespace {

using nlohmann::ordered_json;

constexpr std::int64_t pause_period_ms = 1000;

std::int64_t now_ms() {
    return milliseconds_of(std::chrono::steady_clock::now());
}

/// Pieces in the memory of a writer or of a frame, which the stream keeps until all of them are sent.
std::vector<SharedBytes> lent(const Pieces& pieces) {
    std::vector<SharedBytes> bytes;
    for (const Piece& piece : pieces)
        bytes.push_back({nullptr, piece.data, piece.size});
    return bytes;
}

}  // namespace

PieceStream::Pieces FormatResponse::next() {
    try {
        while ((frame_ = viewer_->take()))
            if (auto bytes = lent(live_.take(*frame_)); !bytes.empty()) return {std::move(bytes), false};
    } catch (const Failure&) {
        return {{}, true};
    }
    return {};
}

PieceStream::Pieces PageResponse::next() {
    while ((frame_ = viewer_->take())) {
        if (!parts_.take(*frame_)) continue;
        said_ms_ = now_ms();
        if (parts_.changed() || !announced_) return begin();
        return picture();
    }
    return pause();
}

/// With the picture behind it: nothing is kept back.
PieceStream::Pieces PageResponse::begin() {
    announced_ = true;
    const PictureFormat& format = parts_.format();
    const bool h264 = format.codec == FrameCodec::h264;
    Bytes beginning;
    std::string type = "image/jpeg";
    fragments_.reset();
    if (h264) {
        fragments_ = std::make_unique<Mp4Fragments>();
        fragments_->begin(format, frame_->time_ms);
        beginning = fragments_->take_beginning();
        type = "video/mp4; codecs=\"" + fragments_->codec_name() + '"';
        start_ms_ = last_ms_ = -1;
    }
    const ordered_json json{{"begin", true},
                            {"codec", h264 ? "h264" : "jpeg"},
                            {"width", format.width},
                            {"height", format.height},
                            {"mime", type}};
    Pieces all{{shared_bytes(message_head(json, beginning.size())), shared_bytes(std::move(beginning))},
               false};
    Pieces first = picture();
    for (SharedBytes& bytes : first.bytes)
        all.bytes.push_back(std::move(bytes));
    return all;
}

std::int64_t PageResponse::time_of_stream() {
    if (start_ms_ < 0) start_ms_ = frame_->arrival_ms;
    return last_ms_ = std::max(last_ms_ + 1, frame_->arrival_ms - start_ms_);
}

PieceStream::Pieces PageResponse::picture() {
    const std::int64_t time_ms = time_of_stream();
    std::vector<SharedBytes> data =
        lent(fragments_ ? fragments_->write(parts_.picture(), frame_->key, time_ms) : parts_.picture());
    std::size_t size = 0;
    for (const SharedBytes& bytes : data)
        size += bytes.size;
    const ordered_json json{{"time", utc_text(frame_->time_ms)},
                            {"pts_ms", time_ms},
                            {"age_ms", now_ms() - frame_->arrival_ms},
                            {"zones", zones_json(frame_->zones)},
                            {"motion", frame_->motion},
                            {"recording", frame_->recording},
                            {"key", frame_->key},
                            {"lost", viewer_->lost()}};
    data.insert(data.begin(), shared_bytes(message_head(json, size)));
    return {std::move(data), false};
}

/// Somebody who waits is told that, and why.
PieceStream::Pieces PageResponse::pause() {
    if (board_ == nullptr) return {{}, viewer_->finished()};
    const std::int64_t now = now_ms();
    if (now - said_ms_ < pause_period_ms) return {};
    said_ms_ = now;
    const ordered_json summary = board_->summary(camera_);
    if (summary.is_null()) return {{}, true};
    const ordered_json json{
        {"age_ms", summary["age_ms"]}, {"state", summary["state"]}, {"reason", summary["reason"]}};
    return {{shared_bytes(message_head(json, 0))}, false};
}

PieceStream::Pieces WallResponse::next() {
    if (!named_) {
        named_ = true;
        return {{shared_bytes(message_head({{"id", name_}}, 0))}, false};
    }
    const WallPicturePointer picture = wall_->take();
    if (!picture) return {};
    const Frame& frame = picture->frame;
    const ordered_json json{
        {"camera", frame.camera},  {"time", utc_text(frame.time_ms)}, {"age_ms", now_ms() - frame.arrival_ms},
        {"width", picture->width}, {"height", picture->height},       {"zones", zones_json(frame.zones)},
        {"motion", frame.motion}};
    return {{shared_bytes(message_head(json, picture->jpeg.size())), shared_bytes(picture, picture->jpeg)},
            false};
}

}  // namespace plendix
