#include "camera/picture/live_pictures.h"

#include <ctime>

#include "camera/picture/scene.h"

namespace plendix::camera {

Answer LivePictures::next(const PictureRequest& request, const Endpoint& client,
                          const Conditions& conditions) {
    const PictureRequest whole = fitted(request);
    Answer answer = request.h264 ? next_h264(whole, client, conditions) : next_jpeg(whole, conditions);
    ++served_;
    return answer;
}

Thumbnail LivePictures::draw(const Picture& picture, const PictureRequest& request,
                             const Conditions& conditions, std::uint64_t ahead) {
    SceneMoment moment{camera_, served_ + 1 + ahead, {}};
    clock_gettime(CLOCK_REALTIME, &moment.time);
    Canvas canvas(picture, request.area, request.half);
    draw_scene(canvas, conditions.sensor, moment);
    return make_thumbnail(measure(picture, request.area, request.half), conditions.motion.zone_edge);
}

Answer LivePictures::next_jpeg(const PictureRequest& request, const Conditions& conditions) {
    const Thumbnail shown = draw(jpeg_.begin(scaled(request.area, request.half)), request, conditions, 0);
    Answer answer;
    answer.data = std::make_shared<const Bytes>(jpeg_.encode(request.quality));
    answer.begin = jpeg_payload(*answer.data);
    answer.trailer = make_trailer(request, conditions, compare(last_jpeg_, shown, conditions.motion), true);
    answer.key = true;
    last_jpeg_ = shown;
    return answer;
}

bool LivePictures::follows(const PictureRequest& request, const Endpoint& client) const {
    return h264_ && !request.key && request == stream_ && client == client_;
}

Answer LivePictures::next_h264(const PictureRequest& request, const Endpoint& client,
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
    answer.data = std::make_shared<const Bytes>(std::move(coded.unit));
    answer.begin = coded.slice;
    answer.trailer =
        make_trailer(request, conditions, compare(last_h264_, shown, conditions.motion), coded.key);
    answer.key = coded.key;
    last_h264_ = shown;
    return answer;
}

/// A key frame is ready only when the pictures that the encoder held before it have come out.
/// Those are dropped, which no decoder notices: nothing refers back across an IDR picture.
CodedPicture LivePictures::code(const PictureRequest& request, bool key, const Conditions& conditions,
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
