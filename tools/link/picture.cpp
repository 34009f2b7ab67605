#include "link/picture.h"

#include <algorithm>

#include "media/jpeg_header.h"
#include "media/parameter_sets.h"

namespace plendix::link {
namespace {

// Offsets in the trailer.
constexpr std::size_t mac_at = 6, activity_at = 16, flags_at = 80, quality_at = 81, area_at = 82, key_at = 92;
constexpr std::uint8_t full_resolution = 4;
constexpr std::size_t filler = 2;  // bytes in front of a JPEG scan, in place of the header's last two
constexpr std::size_t parameter_sets_size = 32;
constexpr std::uint8_t key_slice = 0x65, other_slice = 0x41;  // first bytes of their units

int word_at(View block, std::size_t at) {
    return block.data[at] << 8 | block.data[at + 1];
}

View without_padding(View payload) {
    while (payload.size > 0 && payload.data[payload.size - 1] == 0)
        --payload.size;
    return payload;
}

Bytes jpeg_file(View payload, const Trailer& trailer) {
    Bytes file;
    file.reserve(payload.size + JpegHeaderSize);
    CalculateHeader(file, trailer.width(), trailer.height(), trailer.quality);
    if (payload.size > filler) file.insert(file.end(), payload.data + filler, payload.data + payload.size);
    return file;
}

Bytes access_unit(View payload, const Trailer& trailer) {
    Bytes stream;
    stream.reserve(payload.size + parameter_sets_size);
    if (trailer.key) {
        stream.resize(parameter_sets_size);
        const int length = create_sps_pps(trailer.width(), trailer.height(), 0, stream.data(),
                                          static_cast<int>(parameter_sets_size));
        stream.resize(static_cast<std::size_t>(length));
    }
    const bool start_code = payload.size > 1 && payload.data[0] == 0 && payload.data[1] == 0;
    if (!start_code) stream.insert(stream.end(), {0, 0, 0, 1, trailer.key ? key_slice : other_slice});
    stream.insert(stream.end(), payload.data, payload.data + payload.size);
    return stream;
}

}  // namespace

std::optional<Trailer> parse_trailer(View block) {
    if (block.size < trailer_size) return std::nullopt;
    Trailer trailer;
    std::copy_n(block.data + mac_at, trailer.mac.size(), trailer.mac.begin());
    std::copy_n(block.data + activity_at, trailer.activity.size(), trailer.activity.begin());
    trailer.full = (block.data[flags_at] & full_resolution) != 0;
    trailer.quality = block.data[quality_at];
    trailer.area = {word_at(block, area_at), word_at(block, area_at + 2), word_at(block, area_at + 4),
                    word_at(block, area_at + 6)};
    trailer.h264 = block.size >= h264_trailer_size;
    trailer.key = !trailer.h264 || block.data[key_at] != 0;
    return trailer;
}

std::string trailer_complaint(const Trailer& trailer) {
    const int least = trailer.h264 ? MacroblockSize : 1;
    if (trailer.key && (trailer.width() < least || trailer.height() < least))
        return "a size of " + std::to_string(trailer.width()) + 'x' + std::to_string(trailer.height());
    if (!trailer.h264 && trailer.quality >= JpegQualityLimit)
        return "a JPEG quality of " + std::to_string(trailer.quality);
    return {};
}

Bytes make_picture(View payload, const Trailer& trailer) {
    const View picture = without_padding(payload);
    return trailer.h264 ? access_unit(picture, trailer) : jpeg_file(picture, trailer);
}

}  // namespace plendix::link
