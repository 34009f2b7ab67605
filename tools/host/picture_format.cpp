#include "host/picture_format.h"

#include <algorithm>
#include <cstring>

#include "ffmpeg.h"

namespace plendix {
namespace {

using Position = Bytes::const_iterator;

/// The first byte of the next start code 00 00 01, or the end.
Position find_start_code(Position from, Position end) {
    // Of its three bytes the last is the rarest in coded pictures.
    for (Position one = from; end - one > 2; ++one) {
        const void* found = std::memchr(&*(one + 2), 1, static_cast<std::size_t>(end - one - 2));
        if (found == nullptr) return end;
        one += static_cast<const std::uint8_t*>(found) - &*(one + 2);
        if (*one == 0 && *(one + 1) == 0) return one;
    }
    return end;
}

void append_unit(Bytes& stream, const Piece& unit) {
    stream.insert(stream.end(), {0, 0, 0, 1});
    stream.insert(stream.end(), unit.data, unit.data + unit.size);
}

bool is_frame_header(unsigned marker) {  // SOF0 to SOF15 of ITU-T T.81 Table B.1
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

int word_at(const Bytes& bytes, std::size_t at) {
    return bytes[at] << 8 | bytes[at + 1];
}

}  // namespace

bool PictureFormat::operator==(const PictureFormat& other) const {
    return codec == other.codec && width == other.width && height == other.height &&
           parameter_sets == other.parameter_sets;
}

PictureFormat jpeg_format(const Bytes& picture) {
    PictureFormat format;
    std::size_t at = 2;  // behind SOI
    while (at + 9 <= picture.size() && picture[at] == 0xFF) {
        if (is_frame_header(picture[at + 1])) {
            format.height = word_at(picture, at + 5);
            format.width = word_at(picture, at + 7);
            return format;
        }
        if (picture[at + 1] == 0xDA) break;  // the scan begins
        at += 2 + static_cast<std::size_t>(word_at(picture, at + 2));
    }
    return format;
}

void split_units(const Bytes& stream, Pieces& units) {
    units.clear();
    const Position end = stream.end();
    Position code = find_start_code(stream.begin(), end);
    while (code != end) {
        const Position first = code + 3;
        code = find_start_code(first, end);
        Position last = code;
        while (last != first && *(last - 1) == 0)
            --last;  // zero_byte of the next start code
        if (last != first) units.push_back({&*first, static_cast<std::size_t>(last - first)});
    }
}

void split_h264(const Bytes& stream, H264Frame& frame) {
    frame.parameter_sets.clear();
    split_units(stream, frame.picture);
    const auto is_no_picture = [&frame](const Piece& unit) {
        const unsigned type = unit_type(unit);
        const bool set = type == nal_sps || type == nal_pps;
        if (set) append_unit(frame.parameter_sets, unit);
        return set || type == nal_delimiter;
    };
    frame.picture.erase(std::remove_if(frame.picture.begin(), frame.picture.end(), is_no_picture),
                        frame.picture.end());
}

PictureFormat h264_format(const H264Frame& frame) {
    PictureFormat format;
    format.codec = FrameCodec::h264;
    if (frame.parameter_sets.empty()) return format;
    const LibavPointer<AVCodecParserContext> parser(av_parser_init(AV_CODEC_ID_H264));
    const LibavPointer<AVCodecContext> codec(avcodec_alloc_context3(nullptr));
    if (!parser || !codec) return format;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;

    Bytes unit = frame.parameter_sets;
    for (const Piece& piece : frame.picture)
        append_unit(unit, piece);
    unit.resize(unit.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    const int length = static_cast<int>(unit.size()) - AV_INPUT_BUFFER_PADDING_SIZE;
    std::uint8_t* ignored = nullptr;
    int ignored_length = 0;
    av_parser_parse2(parser.get(), codec.get(), &ignored, &ignored_length, unit.data(), length,
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    format.width = parser->width;
    format.height = parser->height;
    format.parameter_sets = frame.parameter_sets;
    return format;
}

}  // namespace plendix
