#include "camera/picture/jpeg_encoder.h"

#include <jpeglib.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "usage.h"

namespace plendix::camera {

namespace {

// Base tables in rows, of which the quality makes multiples.
constexpr unsigned char luminance[64] = {8,  4,  4,  8,  12, 20, 24, 30, 6,  6,  6,  8,  12, 28, 30, 26,
                                         6,  6,  8,  12, 20, 28, 34, 28, 6,  8,  10, 14, 24, 42, 40, 30,
                                         8,  10, 18, 28, 34, 54, 50, 38, 12, 16, 26, 32, 40, 52, 56, 46,
                                         24, 32, 38, 42, 50, 60, 60, 50, 36, 46, 46, 48, 56, 50, 50, 52};
constexpr unsigned char chrominance[64] = {8,  8,  12, 22, 48, 48, 48, 48, 8,  10, 12, 32, 48, 48, 48, 48,
                                           12, 12, 28, 48, 48, 48, 48, 48, 22, 32, 48, 48, 48, 48, 48, 48,
                                           48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48,
                                           48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 48, 52};

constexpr unsigned restart_mcus = 16;
constexpr int mcu_width = 16, mcu_height = 8;

struct Errors {
    jpeg_error_mgr manager;  // first: the library hands out a pointer to it
    std::jmp_buf leave;
};

[[noreturn]] void leave(j_common_ptr codec) {
    std::longjmp(reinterpret_cast<Errors*>(codec->err)->leave, 1);  // NOLINT(cert-err52-cpp): C in between
}
void no_message(j_common_ptr) {}

void set_table(j_compress_ptr codec, int slot, const unsigned char* base, int quality) {
    // In single precision, as the cameras' firmware does it: the roundings are part of the tables.
    const auto factor = quality == 20 ? 0.825F : static_cast<float>(3.25 - 0.125 * (quality - 1));
    unsigned table[DCTSIZE2];
    for (int i = 0; i < DCTSIZE2; ++i) {
        const float product = static_cast<float>(base[i]) * factor;
        table[i] = static_cast<unsigned>(std::floor(product + 0.5F));
    }
    jpeg_add_quant_table(codec, slot, table, 100, TRUE);
}

void configure(j_compress_ptr codec, const Size& size, int quality) {
    codec->image_width = static_cast<JDIMENSION>(size.width);
    codec->image_height = static_cast<JDIMENSION>(size.height);
    codec->input_components = 3;
    codec->in_color_space = JCS_YCbCr;
    jpeg_set_defaults(codec);
    jpeg_set_colorspace(codec, JCS_YCbCr);
    codec->comp_info[0].h_samp_factor = 2;
    codec->comp_info[0].v_samp_factor = 1;
    set_table(codec, 0, luminance, quality);
    set_table(codec, 1, chrominance, quality);
    codec->restart_interval = restart_mcus;
    codec->raw_data_in = TRUE;
}

void write_rows(j_compress_ptr codec, const Picture& picture) {
    JSAMPROW rows[3][mcu_height];
    JSAMPARRAY planes[3] = {rows[0], rows[1], rows[2]};
    while (codec->next_scanline < codec->image_height) {
        for (int plane = 0; plane < 3; ++plane)
            for (int row = 0; row < mcu_height; ++row)
                rows[plane][row] =
                    picture.plane[static_cast<std::size_t>(plane)] +
                    static_cast<std::ptrdiff_t>(picture.stride[static_cast<std::size_t>(plane)]) *
                        (static_cast<int>(codec->next_scanline) + row);
        jpeg_write_raw_data(codec, planes, mcu_height);
    }
}

/// Plain C inside: the library leaves by longjmp, so nothing here may need a destructor. The
/// output is the caller's to free, also after a failure.
bool compress(const Picture& picture, const Size& size, int quality, unsigned char** output,
              unsigned long* length) {
    jpeg_compress_struct codec;
    Errors errors;
    codec.err = jpeg_std_error(&errors.manager);
    errors.manager.error_exit = leave;
    errors.manager.output_message = no_message;
    if (setjmp(errors.leave) != 0) {  // NOLINT(cert-err52-cpp)
        jpeg_destroy_compress(&codec);
        return false;
    }
    jpeg_create_compress(&codec);
    jpeg_mem_dest(&codec, output, length);
    configure(&codec, size, quality);
    jpeg_start_compress(&codec, TRUE);
    write_rows(&codec, picture);
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    return true;
}

int round_up(int value, int step) {
    return (value + step - 1) / step * step;
}

}  // namespace

const Picture& JpegEncoder::begin(const Size& size) {
    size_ = size;
    picture_.width = round_up(size.width, mcu_width);
    picture_.height = round_up(size.height, mcu_height);
    const auto luma = static_cast<std::size_t>(picture_.width) * static_cast<std::size_t>(picture_.height);
    samples_.resize(luma * 2);
    picture_.plane = {samples_.data(), samples_.data() + luma, samples_.data() + luma + luma / 2};
    picture_.stride = {picture_.width, picture_.width / 2, picture_.width / 2};
    picture_.full_range = true;
    return picture_;
}

Bytes JpegEncoder::encode(int quality) {
    unsigned char* output = nullptr;
    unsigned long length = 0;
    const bool done = compress(picture_, size_, quality, &output, &length);
    const std::unique_ptr<unsigned char, decltype(&std::free)> owner(output, &std::free);
    if (!done) throw Failure("the JPEG library refused a picture");
    return Bytes(output, output + length);
}

std::size_t jpeg_payload(const Bytes& file) {
    constexpr std::uint8_t start_of_scan = 0xDA;
    std::size_t at = 2;  // behind SOI, every marker up to SOS has a segment
    while (at + 4 <= file.size()) {
        const bool scan = file[at + 1] == start_of_scan;
        at += 2 + static_cast<std::size_t>(file[at + 2] << 8 | file[at + 3]);
        if (scan) return at - 2;
    }
    throw Failure("a JPEG file without a scan");
}

}  // namespace plendix::camera
