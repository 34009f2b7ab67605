#include "camera/picture_source.h"

#include <algorithm>
#include <ctime>

#include "camera/scene.h"

namespace plendix::camera {

namespace {

constexpr int macroblock = 16;
constexpr std::size_t jpeg_trailer = 90, h264_trailer = 93;  // bytes

/// The part of the area that is pictured: whole pixels at half resolution, and for H.264 whole
/// macroblocks, because the client's parameter sets know no cropping. The trailer reports it.
Area pictured(const PictureRequest& request) {
    const int unit = (request.half ? 2 : 1) * (request.h264 ? macroblock : 1);
    Area area = request.area;
    area.x1 -= area.width() % unit;
    area.y1 -= area.height() % unit;
    const Size size = scaled(area, request.half);
    if (size.width < macroblock || size.height < macroblock)
        throw Refused(ErrorCode::not_found, "the requested area is smaller than 16x16 pixels");
    return area;
}

void put_word(Bytes& trailer, std::size_t at, int value) {
    trailer[at] = static_cast<std::uint8_t>(value >> 8);
    trailer[at + 1] = static_cast<std::uint8_t>(value);
}

Bytes make_trailer(const PictureRequest& request, const Conditions& conditions, const Activity& activity,
                   bool key) {
    Bytes trailer(request.h264 ? h264_trailer : jpeg_trailer, 0);
    std::copy(conditions.mac.begin(), conditions.mac.end(), trailer.begin() + 6);
    std::copy(activity.begin(), activity.end(), trailer.begin() + 16);
    trailer[80] = request.half ? 0 : 4;
    trailer[81] = static_cast<std::uint8_t>(request.h264 ? 0 : request.quality);
    put_word(trailer, 82, request.area.x0);
    put_word(trailer, 84, request.area.y0);
    put_word(trailer, 86, request.area.x1);
    put_word(trailer, 88, request.area.y1);
    if (request.h264) trailer[92] = key ? 1 : 0;
    return trailer;
}

}  // namespace

Served PictureSource::next(const PictureRequest& request, const Endpoint& client,
                           const Conditions& conditions) {
    PictureRequest fitted = request;
    fitted.area = pictured(request);
    Served served = request.h264 ? next_h264(fitted, client, conditions) : next_jpeg(fitted, conditions);
    ++served_;
    return served;
}

Thumbnail PictureSource::draw(const Picture& picture, const PictureRequest& request,
                              const Conditions& conditions, std::uint64_t ahead) {
    SceneMoment moment{camera_, served_ + 1 + ahead, {}};
    clock_gettime(CLOCK_REALTIME, &moment.time);
    Canvas canvas(picture, request.area, request.half);
    draw_scene(canvas, conditions.sensor, moment);
    return make_thumbnail(picture, request.area, request.half, conditions.motion.zone_edge);
}

Served PictureSource::next_jpeg(const PictureRequest& request, const Conditions& conditions) {
    const Thumbnail shown = draw(jpeg_.begin(scaled(request.area, request.half)), request, conditions, 0);
    Served served{nullptr, jpeg_.encode(request.quality)};
    Answer answer;
    answer.payload.assign(2, 0);  // the client puts the end of its header over these two bytes
    answer.payload.insert(answer.payload.end(),
                          served.original.begin() + static_cast<std::ptrdiff_t>(scan_begin(served.original)),
                          served.original.end());
    answer.trailer = make_trailer(request, conditions, compare(last_jpeg_, shown, conditions.motion), true);
    answer.key = true;
    last_jpeg_ = shown;
    served.answer = std::make_shared<const Answer>(std::move(answer));
    return served;
}

bool PictureSource::follows(const PictureRequest& request, const Endpoint& client) const {
    return h264_ && !request.key && request == stream_ && client == client_;
}

Served PictureSource::next_h264(const PictureRequest& request, const Endpoint& client,
                                const Conditions& conditions) {
    const bool key = !follows(request, client);
    const bool same_coding =
        h264_ && request.area == stream_.area && request.half == stream_.half && request.qp == stream_.qp;
    if (!same_coding) {
        h264_.reset();  // before the next one is built: they are large
        waiting_.clear();
        h264_ = std::make_unique<H264Encoder>(scaled(request.area, request.half), request.qp);
    }
    stream_ = request;
    client_ = client;

    Thumbnail shown;
    CodedPicture coded = code(request, key, conditions, shown);
    Answer answer;
    answer.payload.assign(coded.unit.begin() + static_cast<std::ptrdiff_t>(coded.slice), coded.unit.end());
    answer.trailer =
        make_trailer(request, conditions, compare(last_h264_, shown, conditions.motion), coded.key);
    answer.key = coded.key;
    last_h264_ = shown;
    return {std::make_shared<const Answer>(std::move(answer)), std::move(coded.unit)};
}

/// A key frame is ready only when the pictures that the encoder held before it have come out.
/// Those are dropped, which no decoder notices: nothing refers back across an IDR picture.
CodedPicture PictureSource::code(const PictureRequest& request, bool key, const Conditions& conditions,
                                 Thumbnail& shown) {
    for (std::uint64_t step = 0;; ++step) {
        const std::uint64_t ahead = key ? step : waiting_.size();
        waiting_.push_back(draw(h264_->begin(), request, conditions, ahead));
        auto coded = h264_->feed(key && step == 0);
        if (!coded) continue;
        shown = waiting_.front();
        waiting_.pop_front();
        if (!key || coded->key) return std::move(*coded);
    }
}

}  // namespace plendix::camera
