// Pictures as the driver delivers them, from the encoders of the simulated cameras.
#pragma once

#include "camera/gallery.h"

namespace plendix {

/// Pictures from one H.264 key frame, with its parameter sets, to the next.
constexpr std::size_t key_distance = camera::Gallery::group;

/// JPEG: whole files. H.264: byte streams that end with the delimiter of the next access unit.
inline std::vector<camera::Bytes> encode_pictures(bool h264, std::size_t count, int width = 96) {
    camera::Gallery gallery(camera::generated_loop(), 100'000'000);
    camera::PictureRequest request;
    request.h264 = h264;
    request.area = {0, 0, width, 64};
    std::vector<camera::Bytes> pictures;
    for (std::size_t i = 0; i < count; ++i) {
        pictures.push_back(*gallery.picture(request, request.area, i % gallery.length())->file());
        if (h264) pictures.back().insert(pictures.back().end(), {0, 0, 1, 9, 0x10});
    }
    return pictures;
}

}  // namespace plendix
