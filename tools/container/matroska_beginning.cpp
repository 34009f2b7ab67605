#include "container/matroska_beginning.h"

#include <algorithm>

#include "container/ebml.h"
#include "container/matroska_ids.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::int64_t since_2001_ms = 978'307'200'000;  // from 1970: dates of Matroska count from there
constexpr std::uint64_t unknown_size = (std::uint64_t{1} << 56U) - 1;
constexpr std::size_t seek_head_bytes = 138;  // with three entries

void put_sets(Bytes& record, const Pieces& units, NalType type, unsigned count_bits) {
    const auto is_such = [type](const Piece& unit) { return unit_type(unit) == type; };
    const auto count = std::count_if(units.begin(), units.end(), is_such);
    record.push_back(static_cast<std::uint8_t>(count_bits | static_cast<unsigned>(count)));
    for (const Piece& unit : units) {
        if (!is_such(unit)) continue;
        put_big_endian(record, unit.size, 2);
        record.insert(record.end(), unit.data, unit.data + unit.size);
    }
}

/// The decoder's configuration record (ISO/IEC 14496-15, 5.3.3.1) for units with lengths of four bytes.
Bytes decoder_record(const Bytes& sets) {
    if (!is_byte_stream(sets)) return sets;
    Pieces units;
    split_units(sets, units);
    const auto sps = std::find_if(units.begin(), units.end(), [](const Piece& unit) {
        return unit_type(unit) == nal_sps && unit.size >= 4;
    });
    if (sps == units.end()) throw Failure("no parameter sets");
    Bytes record{1, sps->data[1], sps->data[2], sps->data[3], 0xFF};
    put_sets(record, units, nal_sps, 0xE0);
    put_sets(record, units, nal_pps, 0);
    return record;
}

Bytes ebml_header() {
    Bytes content, header;
    put_number(content, id_ebml_version, 1);
    put_number(content, id_ebml_read_version, 1);
    put_number(content, id_ebml_longest_id, 4);
    put_number(content, id_ebml_longest_size, 8);
    put_text(content, id_doc_type, "matroska");
    put_number(content, id_doc_type_version, 4);
    put_number(content, id_doc_type_read_version, 2);
    put_element(header, id_ebml, content);
    return header;
}

/// Without a duration as long as the file is open.
Bytes info(std::int64_t start_ms, const std::optional<MatroskaEnd>& end) {
    constexpr std::size_t duration_bytes = 18;
    Bytes content, element;
    put_number(content, id_timestamp_scale, 1'000'000);  // ns: all times are in ms
    if (end)
        put_real(content, id_duration, static_cast<double>(end->duration_ms));
    else
        put_void(content, duration_bytes);
    put_number(content, id_date, static_cast<std::uint64_t>(start_ms - since_2001_ms) * 1'000'000U);
    put_text(content, id_muxing_app, "Plendix");
    put_text(content, id_writing_app, "Plendix");
    put_element(element, id_info, content);
    return element;
}

Bytes tracks(const PictureFormat& format) {
    const bool h264 = format.codec == FrameCodec::h264;
    Bytes video, track, all, element;
    put_number(video, id_width, static_cast<std::uint64_t>(format.width));
    put_number(video, id_height, static_cast<std::uint64_t>(format.height));
    put_number(track, id_track_number, 1);
    put_number(track, id_track_uid, 1);
    put_number(track, id_track_type, 1);  // video
    put_number(track, id_lacing, 0);
    put_text(track, id_language, "und");
    put_text(track, id_codec, h264 ? "V_MPEG4/ISO/AVC" : "V_MJPEG");
    if (h264) put_element(track, id_codec_private, decoder_record(format.parameter_sets));
    put_element(track, id_video, video);
    put_element(all, id_track, track);
    put_element(element, id_tracks, all);
    return element;
}

void put_seek(Bytes& bytes, std::uint32_t id, std::uint64_t position) {
    Bytes content, name;
    put_id(name, id);
    put_element(content, id_seek_id, name);
    put_number(content, id_seek_position, position);
    put_element(bytes, id_seek, content);
}

/// Where the parts of a closed file are, from its origin.
Bytes seek_head(std::uint64_t tracks_position, std::uint64_t cues_position) {
    Bytes seeks, element;
    put_seek(seeks, id_info, seek_head_bytes);
    put_seek(seeks, id_tracks, tracks_position);
    put_seek(seeks, id_cues, cues_position);
    put_element(element, id_seek_head, seeks);
    return element;
}

}  // namespace

bool is_byte_stream(const Bytes& parameter_sets) {
    return !parameter_sets.empty() && parameter_sets[0] == 0;
}

std::uint64_t matroska_origin() {
    static const std::uint64_t bytes = ebml_header().size() + 12;  // the segment's ID and size
    return bytes;
}

Bytes matroska_beginning(const PictureFormat& format, std::int64_t start_ms,
                         const std::optional<MatroskaEnd>& end) {
    const Bytes about = info(start_ms, end);
    Bytes bytes = ebml_header();
    put_id(bytes, id_segment);
    put_size(bytes, end ? end->file_bytes - matroska_origin() : unknown_size);
    if (end) {
        const Bytes parts = seek_head(seek_head_bytes + about.size(), end->cues_position - matroska_origin());
        bytes.insert(bytes.end(), parts.begin(), parts.end());
    } else {
        put_void(bytes, seek_head_bytes);
    }
    for (const Bytes& part : {about, tracks(format)})
        bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

}  // namespace plendix
