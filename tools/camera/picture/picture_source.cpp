#include "camera/picture/picture_source.h"

#include <algorithm>

namespace plendix::camera {

namespace {

constexpr int macroblock = 16;
constexpr std::size_t jpeg_trailer = 90, h264_trailer = 93;  // bytes

void put_word(Bytes& trailer, std::size_t at, int value) {
    trailer[at] = static_cast<std::uint8_t>(value >> 8);
    trailer[at + 1] = static_cast<std::uint8_t>(value);
}

}  // namespace

PictureRequest fitted(const PictureRequest& request) {
    const int unit = (request.half ? 2 : 1) * (request.h264 ? macroblock : 1);
    PictureRequest whole = request;
    whole.area.x1 -= request.area.width() % unit;
    whole.area.y1 -= request.area.height() % unit;
    const Size size = scaled(whole.area, request.half);
    if (size.width < macroblock || size.height < macroblock)
        throw Refused(ErrorCode::not_found, "the requested area is smaller than 16x16 pixels");
    return whole;
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

}  // namespace plendix::camera
