#include "host/jpeg_check.h"

#include <jpeglib.h>

#include <csetjmp>
#include <cstdio>

namespace plendix {
namespace {

struct Opinion {
    jpeg_error_mgr manager;  // first: the library hands out a pointer to it
    std::jmp_buf leave;
    char text[JMSG_LENGTH_MAX];
};

[[noreturn]] void complain(j_common_ptr codec) {
    auto* opinion = reinterpret_cast<Opinion*>(codec->err);
    opinion->manager.format_message(codec, opinion->text);
    std::longjmp(opinion->leave, 1);  // NOLINT(cert-err52-cpp): C in between
}

void on_message(j_common_ptr codec, int level) {
    if (level < 0) complain(codec);  // a warning; the others are for those who trace
}

/// Plain C inside: the library leaves by longjmp, so nothing here may need a destructor.
bool read(const std::uint8_t* data, std::size_t size, Opinion& opinion) {
    jpeg_decompress_struct codec{};
    codec.err = jpeg_std_error(&opinion.manager);
    opinion.manager.error_exit = complain;
    opinion.manager.emit_message = on_message;
    if (setjmp(opinion.leave) != 0) {  // NOLINT(cert-err52-cpp)
        jpeg_destroy_decompress(&codec);
        return false;
    }
    jpeg_create_decompress(&codec);
    jpeg_mem_src(&codec, data, static_cast<unsigned long>(size));
    jpeg_read_header(&codec, TRUE);
    jpeg_read_coefficients(&codec);  // nothing behind the entropy coding can go wrong
    jpeg_finish_decompress(&codec);
    jpeg_destroy_decompress(&codec);
    return true;
}

}  // namespace

std::string jpeg_complaint(const std::uint8_t* data, std::size_t size) {
    Opinion opinion{};
    return read(data, size, opinion) ? "" : opinion.text;
}

}  // namespace plendix
