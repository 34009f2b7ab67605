// Small pictures of large ones.
#pragma once

#include "host/frame.h"

namespace plendix {

struct Thumbnail {
    Bytes jpeg;  // a JPEG file; empty where the picture could not be decoded
    int width = 0, height = 0;
};

/// Of a JPEG picture or an H.264 key frame: at least so many pixels wide where the picture is, and less
/// than twice that. JPEG pictures are decoded at an eighth, a quarter or half of their size as far as that
/// is enough, which costs a fraction. Any thread.
Thumbnail make_thumbnail(const Frame& frame, int width);

/// The same of its whole size: a JPEG file of a key frame; the frame itself where it is one.
Bytes whole_jpeg(const Frame& frame);

}  // namespace plendix
