#include "camera/picture/gallery.h"

#include <algorithm>

namespace plendix::camera {

namespace {

// What an encoder takes, as measured: tables, and its reference pictures and those that it looks ahead at.
constexpr std::size_t encoder_bytes_at_least = 3U << 20U, encoder_bytes_per_pixel = 25;

/// Short loops are shown several times in a group, for key frames are large.
std::size_t stretched(std::size_t pictures) {
    return pictures * std::max<std::size_t>(1, Gallery::group / pictures);
}

std::size_t encoder_bytes(const PictureRequest& request) {
    const Size size = scaled(request.area, request.half);
    const auto pixels = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    return encoder_bytes_at_least + pixels * encoder_bytes_per_pixel;
}

/// Whether the same pictures serve both; the stream sequence number does not show in them.
bool same_coding(const PictureRequest& a, const PictureRequest& b) {
    return a.h264 == b.h264 && a.half == b.half && a.area == b.area &&
           (a.h264 ? a.qp == b.qp : a.quality == b.quality);
}

}  // namespace

const Thumbnail& GalleryPicture::thumbnail(int zone_edge) const {
    const auto found = thumbnails_.find(zone_edge);
    if (found != thumbnails_.end()) return found->second;
    return thumbnails_.emplace(zone_edge, make_thumbnail(brightness_, zone_edge)).first->second;
}

Gallery::Gallery(std::unique_ptr<Loop> loop, std::size_t limit_bytes)
    : loop_(std::move(loop)), length_(stretched(loop_->size())), limit_(limit_bytes) {}

const GalleryPicture* Gallery::picture(const PictureRequest& request, const Area& sensor, std::size_t index) {
    Group& found = find(request, sensor, index / group * group);
    const bool present = found.pictures.count(index) > 0;
    if (!present && request.h264 && index != found.first + found.pictures.size()) return nullptr;
    if (!present && request.h264) code_h264(found);
    if (!present && !request.h264) code_jpeg(found, index);
    make_room();
    return &found.pictures.at(index);
}

Gallery::Group& Gallery::find(const PictureRequest& request, const Area& sensor, std::size_t first) {
    for (auto at = groups_.begin(); at != groups_.end(); ++at) {
        if (at->first != first || !same_coding(at->request, request) || !(at->sensor == sensor)) continue;
        groups_.splice(groups_.begin(), groups_, at);
        return groups_.front();
    }
    groups_.push_front({request, sensor, first});
    return groups_.front();
}

Brightness Gallery::draw(const Group& group_drawn, std::size_t index, const Picture& target) {
    const PictureRequest& request = group_drawn.request;
    loop_->draw(index % loop_->size(), target, request.area, request.half, group_drawn.sensor);
    return measure(target, request.area, request.half);
}

void Gallery::code_jpeg(Group& coded, std::size_t index) {
    const Picture& target = jpeg_.begin(scaled(coded.request.area, coded.request.half));
    Brightness brightness = draw(coded, index, target);
    Bytes file = jpeg_.encode(coded.request.quality);
    const std::size_t begin = jpeg_payload(file);
    store(coded, index, GalleryPicture(std::move(file), begin, true, std::move(brightness)));
}

/// Codes the next picture of the group; the encoder wants some more before it gives that away.
void Gallery::code_h264(Group& coded) {
    const std::size_t count = std::min(group, length_ - coded.first);
    if (!coded.encoder) open_encoder(coded);
    std::optional<CodedPicture> picture;
    while (!picture && coded.fed < count) {
        coded.waiting.push_back(draw(coded, coded.first + coded.fed, coded.encoder->begin()));
        picture = coded.encoder->feed(coded.fed++ == 0);
    }
    if (!picture) picture = coded.encoder->drain();
    if (!picture) throw std::runtime_error("H.264 encoder: a picture is missing");
    const std::size_t index = coded.first + coded.pictures.size();
    store(coded, index,
          GalleryPicture(std::move(picture->unit), picture->slice, picture->key,
                         std::move(coded.waiting.front())));
    coded.waiting.pop_front();
    if (coded.pictures.size() < count) return;
    coded.encoder.reset();
    coded.bytes -= encoder_bytes(coded.request);
    bytes_ -= encoder_bytes(coded.request);
}

void Gallery::open_encoder(Group& opened) {
    opened.encoder =
        std::make_unique<H264Encoder>(scaled(opened.request.area, opened.request.half), opened.request.qp);
    charge(opened, encoder_bytes(opened.request));
}

void Gallery::store(Group& storing, std::size_t index, GalleryPicture picture) {
    charge(storing, picture.bytes());
    storing.pictures.emplace(index, std::move(picture));
}

void Gallery::charge(Group& charged, std::size_t bytes) {
    charged.bytes += bytes;
    bytes_ += bytes;
}

void Gallery::make_room() {
    while (bytes_ > limit_ && groups_.size() > 1) {
        bytes_ -= groups_.back().bytes;
        groups_.pop_back();
    }
}

}  // namespace plendix::camera
