#include "serve/no_signal.h"

#include <cmath>
#include <new>

#include "host/still_image.h"

namespace plendix {
namespace {

constexpr int width = 640, height = 360;
constexpr int dark = 36, light = 150, no_colour = 128;

/// A ring with a bar across it, around the centre.
bool in_sign(double x, double y) {
    constexpr double radius = 90, thickness = 9;
    const double distance = std::hypot(x, y);
    const bool ring = std::abs(distance - radius) < thickness;
    const bool bar = distance < radius && std::abs(x + y) < thickness * std::sqrt(2.0);
    return ring || bar;
}

Bytes draw() {
    const LibavPointer<AVFrame> frame(av_frame_alloc());
    if (!frame) throw std::bad_alloc();
    frame->format = AV_PIX_FMT_YUVJ420P;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
    for (int plane = 0; plane < 3; ++plane) {
        const int scale = plane == 0 ? 1 : 2;
        for (int y = 0; y < height / scale; ++y) {
            std::uint8_t* row = frame->data[plane] + std::ptrdiff_t{y} * frame->linesize[plane];
            for (int x = 0; x < width / scale; ++x) {
                const bool sign = plane == 0 && in_sign(x - width / 2.0, y - height / 2.0);
                row[x] = static_cast<std::uint8_t>(plane > 0 ? no_colour : sign ? light : dark);
            }
        }
    }
    return encode_still(*frame, StillFormat::jpeg);
}

}  // namespace

const Bytes& no_signal_jpeg() {
    static const Bytes picture = draw();
    return picture;
}

}  // namespace plendix
