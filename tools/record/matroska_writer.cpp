#include "record/matroska_writer.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "record/ebml.h"
#include "record/write_failure.h"

namespace plendix {
namespace {

constexpr std::int64_t since_2001_ms = 978'307'200'000;  // from 1970: dates of Matroska count from there
constexpr std::int64_t cue_period_ms = 1000;             // a player need not jump more finely
constexpr std::uint64_t unknown_size = (std::uint64_t{1} << 56U) - 1;
constexpr std::size_t seek_head_bytes = 138;    // with three entries
constexpr std::size_t cluster_head_bytes = 55;  // up to the picture
constexpr std::size_t checked_from = 25;        // behind ID, size and checksum
constexpr std::size_t checksum_bytes = 4;
constexpr std::size_t block_head_bytes = 4;
constexpr std::size_t length_bytes = 4;  // of a unit

enum Id : std::uint32_t {  // RFC 9559, 5.1
    id_ebml = 0x1A45DFA3,
    id_ebml_version = 0x4286,
    id_ebml_read_version = 0x42F7,
    id_ebml_longest_id = 0x42F2,
    id_ebml_longest_size = 0x42F3,
    id_doc_type = 0x4282,
    id_doc_type_version = 0x4287,
    id_doc_type_read_version = 0x4285,
    id_segment = 0x18538067,
    id_seek_head = 0x114D9B74,
    id_seek = 0x4DBB,
    id_seek_id = 0x53AB,
    id_seek_position = 0x53AC,
    id_info = 0x1549A966,
    id_timestamp_scale = 0x2AD7B1,
    id_duration = 0x4489,
    id_date = 0x4461,
    id_muxing_app = 0x4D80,
    id_writing_app = 0x5741,
    id_tracks = 0x1654AE6B,
    id_track = 0xAE,
    id_track_number = 0xD7,
    id_track_uid = 0x73C5,
    id_track_type = 0x83,
    id_lacing = 0x9C,
    id_language = 0x22B59C,
    id_codec = 0x86,
    id_codec_private = 0x63A2,
    id_video = 0xE0,
    id_width = 0xB0,
    id_height = 0xBA,
    id_cluster = 0x1F43B675,
    id_checksum = 0xBF,
    id_timestamp = 0xE7,
    id_simple_block = 0xA3,
    id_cues = 0x1C53BB6B,
    id_cue_point = 0xBB,
    id_cue_time = 0xB3,
    id_cue_positions = 0xB7,
    id_cue_track = 0xF7,
    id_cue_cluster = 0xF1,
};

bool is_byte_stream(const Bytes& sets) {
    return !sets.empty() && sets[0] == 0;
}

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
    if (sps == units.end()) return {};
    Bytes record{1, sps->data[1], sps->data[2], sps->data[3], 0xFC | (length_bytes - 1)};
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
Bytes info(std::int64_t start_ms, std::optional<std::int64_t> duration_ms) {
    constexpr std::size_t duration_bytes = 18;
    Bytes content, element;
    put_number(content, id_timestamp_scale, 1'000'000);  // ns: all times are in ms
    if (duration_ms)
        put_real(content, id_duration, static_cast<double>(*duration_ms));
    else
        put_void(content, duration_bytes);
    put_number(content, id_date, static_cast<std::uint64_t>((start_ms - since_2001_ms) * 1'000'000));
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

void append_bytes(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace

MatroskaWriter::MatroskaWriter(const std::filesystem::path& file, PictureFormat format, std::int64_t start_ms)
    : file_(file),
      format_(std::move(format)),
      start_ms_(start_ms),
      units_(format_.codec == FrameCodec::h264 && is_byte_stream(format_.parameter_sets)) {
    const Bytes bytes = beginning(0);
    try {
        file_.append({{bytes.data(), bytes.size()}});
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(file_.path(), ignored);  // there is no frame in it
        throw;
    }
}

MatroskaWriter::~MatroskaWriter() {
    try {
        close();
    } catch (const WriteFailure&) {  // NOLINT(bugprone-empty-catch): without an index, then
    }
}

/// Everything before the first cluster. Takes as many bytes for the open file, which has no index yet,
/// as for the closed one.
Bytes MatroskaWriter::beginning(std::uint64_t cues_position) const {
    const bool closed = cues_position > 0;
    Bytes bytes = ebml_header();
    put_id(bytes, id_segment);
    const std::uint64_t content = bytes.size() + sizeof unknown_size;
    put_size(bytes, closed ? file_.size() - content : unknown_size);
    const Bytes about = info(start_ms_, closed ? std::optional(last_ms_) : std::nullopt);
    if (closed) {
        Bytes seeks;
        put_seek(seeks, id_info, seek_head_bytes);
        put_seek(seeks, id_tracks, seek_head_bytes + about.size());
        put_seek(seeks, id_cues, cues_position - content);
        put_element(bytes, id_seek_head, seeks);
    } else {
        put_void(bytes, seek_head_bytes);
    }
    append_bytes(bytes, about);
    append_bytes(bytes, tracks(format_));
    return bytes;
}

Bytes MatroskaWriter::index() const {
    const std::uint64_t content = ebml_header().size() + sizeof(std::uint32_t) + sizeof unknown_size;
    Bytes points, element;
    for (const Cue& cue : cues_) {
        Bytes place, point;
        put_number(place, id_cue_track, 1);
        put_number(place, id_cue_cluster, cue.position - content);
        put_number(point, id_cue_time, static_cast<std::uint64_t>(cue.time_ms));
        put_element(point, id_cue_positions, place);
        put_element(points, id_cue_point, point);
    }
    put_element(element, id_cues, points);
    return element;
}

/// Fills pieces_ with the whole cluster; the checksum is still to come, behind its head.
void MatroskaWriter::gather(const Pieces& picture, bool key) {
    const std::size_t lengths = units_ ? picture.size() * length_bytes : 0;
    std::uint64_t bytes = lengths;
    for (const Piece& piece : picture)
        bytes += piece.size;
    head_.clear();
    put_id(head_, id_cluster);
    put_size(head_, cluster_head_bytes - 12 + bytes);
    put_id(head_, id_checksum);
    put_size(head_, checksum_bytes);
    put_big_endian(head_, 0, checksum_bytes);
    put_number(head_, id_timestamp, static_cast<std::uint64_t>(last_ms_));
    put_id(head_, id_simple_block);
    put_size(head_, block_head_bytes + bytes);
    // Track 1, at the cluster's time.
    head_.insert(head_.end(), {0x81, 0, 0, static_cast<std::uint8_t>(key ? 0x80 : 0)});
    if (units_)
        for (const Piece& piece : picture)
            put_big_endian(head_, piece.size, length_bytes);

    pieces_.assign(1, {head_.data(), cluster_head_bytes});
    for (std::size_t i = 0; i < picture.size(); ++i) {
        if (units_) pieces_.push_back({head_.data() + cluster_head_bytes + i * length_bytes, length_bytes});
        pieces_.push_back(picture[i]);
    }
}

void MatroskaWriter::put_checksum() {
    std::uint32_t sum = libdeflate_crc32(0, head_.data() + checked_from, cluster_head_bytes - checked_from);
    for (std::size_t i = 1; i < pieces_.size(); ++i)
        sum = libdeflate_crc32(sum, pieces_[i].data, pieces_[i].size);
    for (std::size_t i = 0; i < checksum_bytes; ++i)  // little-endian, of all things
        head_[checked_from - checksum_bytes + i] = static_cast<std::uint8_t>(sum >> (8 * i));
}

void MatroskaWriter::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    if (!open_) throw WriteFailure(path(), EBADF);
    last_ms_ = std::max(last_ms_, time_ms);
    gather(picture, key);
    put_checksum();
    const std::uint64_t position = file_.size();
    try {
        file_.append(pieces_);
    } catch (...) {
        open_ = false;
        throw;
    }
    if (key && (cues_.empty() || last_ms_ - cues_.back().time_ms >= cue_period_ms))
        cues_.push_back({last_ms_, position});
}

void MatroskaWriter::close() {
    if (!std::exchange(open_, false)) return;
    const std::uint64_t before = file_.size();
    try {
        const Bytes cues = index();
        file_.append({{cues.data(), cues.size()}});
        file_.overwrite(beginning(before));
    } catch (const WriteFailure&) {
        file_.cut(before);
        throw;
    }
}

}  // namespace plendix
