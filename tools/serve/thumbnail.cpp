#include "serve/thumbnail.h"

#include <jpeglib.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include "host/still_image.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr int quality = 75;  // 1 to 100

struct Trouble {
    jpeg_error_mgr manager;  // first: the library hands out a pointer to it
    std::jmp_buf leave;
};

[[noreturn]] void leave(j_common_ptr codec) {
    std::longjmp(reinterpret_cast<Trouble*>(codec->err)->leave, 1);  // NOLINT(cert-err52-cpp): C in between
}

void ignore(j_common_ptr /*codec*/, int /*level*/) {}

/// Rows of pixels, as the JPEG library has them: luminance and both chrominances interleaved.
struct Pixels {
    std::vector<std::uint8_t> bytes;
    unsigned width = 0, height = 0;
    std::size_t row() const { return std::size_t{width} * 3; }
};

/// Plain C inside: the library leaves by longjmp, so nothing here may need a destructor.
bool read_head(jpeg_decompress_struct& codec, Trouble& trouble, const Bytes& file, unsigned width) {
    codec.err = jpeg_std_error(&trouble.manager);
    trouble.manager.error_exit = leave;
    trouble.manager.emit_message = ignore;
    if (setjmp(trouble.leave) != 0) return false;  // NOLINT(cert-err52-cpp)
    jpeg_create_decompress(&codec);
    jpeg_mem_src(&codec, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&codec, TRUE);
    codec.out_color_space = JCS_YCbCr;
    codec.dct_method = JDCT_IFAST;
    codec.do_fancy_upsampling = FALSE;
    codec.scale_num = 1;
    codec.scale_denom = 8;
    while (codec.scale_denom > 1 && codec.image_width / codec.scale_denom < width)
        codec.scale_denom /= 2;
    jpeg_start_decompress(&codec);
    return true;
}

bool read_rows(jpeg_decompress_struct& codec, Trouble& trouble, std::uint8_t* to, std::size_t row) {
    if (setjmp(trouble.leave) != 0) return false;  // NOLINT(cert-err52-cpp)
    while (codec.output_scanline < codec.output_height) {
        JSAMPROW line = to + codec.output_scanline * row;
        jpeg_read_scanlines(&codec, &line, 1);
    }
    jpeg_finish_decompress(&codec);
    return true;
}

bool decode_small(const Bytes& file, unsigned width, Pixels& pixels) {
    jpeg_decompress_struct codec{};
    Trouble trouble{};
    bool good = read_head(codec, trouble, file, width) && codec.output_components == 3;
    if (good) {
        pixels.width = codec.output_width;
        pixels.height = codec.output_height;
        pixels.bytes.resize(pixels.row() * pixels.height);
        good = read_rows(codec, trouble, pixels.bytes.data(), pixels.row());
    }
    jpeg_destroy_decompress(&codec);
    return good;
}

bool write_rows(jpeg_compress_struct& codec, Trouble& trouble, const Pixels& pixels, unsigned char** file,
                unsigned long* size) {
    codec.err = jpeg_std_error(&trouble.manager);
    trouble.manager.error_exit = leave;
    if (setjmp(trouble.leave) != 0) return false;  // NOLINT(cert-err52-cpp)
    jpeg_create_compress(&codec);
    jpeg_mem_dest(&codec, file, size);
    codec.image_width = pixels.width;
    codec.image_height = pixels.height;
    codec.input_components = 3;
    codec.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, quality, TRUE);
    codec.dct_method = JDCT_IFAST;
    jpeg_start_compress(&codec, TRUE);
    while (codec.next_scanline < codec.image_height) {
        auto* line = const_cast<JSAMPROW>(pixels.bytes.data() + codec.next_scanline * pixels.row());
        jpeg_write_scanlines(&codec, &line, 1);
    }
    jpeg_finish_compress(&codec);
    return true;
}

Bytes encode(const Pixels& pixels) {
    jpeg_compress_struct codec{};
    Trouble trouble{};
    unsigned char* file = nullptr;
    unsigned long size = 0;
    const bool good = write_rows(codec, trouble, pixels, &file, &size);
    jpeg_destroy_compress(&codec);
    Bytes result;
    if (good) result.assign(file, file + size);
    std::free(file);  // NOLINT(cppcoreguidelines-no-malloc): the library's
    return result;
}

Thumbnail small_jpeg(const Bytes& file, int width) {
    Pixels pixels;
    if (!decode_small(file, static_cast<unsigned>(std::max(width, 1)), pixels)) return {};
    return {encode(pixels), static_cast<int>(pixels.width), static_cast<int>(pixels.height)};
}

}  // namespace

Bytes whole_jpeg(const Frame& frame) {
    if (frame.codec == FrameCodec::jpeg) return frame.data;
    const auto picture = decode_still(FrameCodec::h264, frame.data);
    if (!picture) return {};
    try {
        return encode_still(*picture, StillFormat::jpeg);
    } catch (const Failure&) {
        return {};
    }
}

Thumbnail make_thumbnail(const Frame& frame, int width) {
    return small_jpeg(whole_jpeg(frame), width);
}

}  // namespace plendix
