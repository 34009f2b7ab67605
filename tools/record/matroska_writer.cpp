#include "record/matroska_writer.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "record/ebml.h"
#include "record/matroska_beginning.h"
#include "record/matroska_ids.h"
#include "record/write_failure.h"

namespace plendix {
namespace {

constexpr std::int64_t cue_period_ms = 1000;    // a player need not jump more finely
constexpr std::size_t cluster_head_bytes = 55;  // up to the picture
constexpr std::size_t checked_from = 25;        // behind ID, size and checksum
constexpr std::size_t checksum_bytes = 4;
constexpr std::size_t block_head_bytes = 4;
constexpr std::size_t length_bytes = 4;  // of a unit

Bytes index(const std::vector<MatroskaCue>& cues) {
    Bytes points, element;
    for (const MatroskaCue& cue : cues) {
        Bytes place, point;
        put_number(place, id_cue_track, 1);
        put_number(place, id_cue_cluster, cue.position - matroska_origin());
        put_number(point, id_cue_time, static_cast<std::uint64_t>(cue.time_ms));
        put_element(point, id_cue_positions, place);
        put_element(points, id_cue_point, point);
    }
    put_element(element, id_cues, points);
    return element;
}

}  // namespace

MatroskaWriter::MatroskaWriter(const std::filesystem::path& file, PictureFormat format, std::int64_t start_ms)
    : file_(file),
      format_(std::move(format)),
      start_ms_(start_ms),
      units_(format_.codec == FrameCodec::h264 && is_byte_stream(format_.parameter_sets)) {
    try {
        const Bytes bytes = matroska_beginning(format_, start_ms_, std::nullopt);
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
    last_ms_ = std::max(last_ms_ + 1, time_ms);
    gather(picture, key);
    put_checksum();
    const std::uint64_t position = file_.size();
    try {
        file_.append(pieces_);
    } catch (...) {
        open_ = false;
        throw;
    }
    ++frames_;
    if (key && (cues_.empty() || last_ms_ - cues_.back().time_ms >= cue_period_ms))
        cues_.push_back({last_ms_, position});
}

void MatroskaWriter::close() {
    if (!std::exchange(open_, false)) return;
    const std::uint64_t before = file_.size();
    try {
        const Bytes cues = index(cues_);
        file_.append({{cues.data(), cues.size()}});
        file_.overwrite(matroska_beginning(format_, start_ms_, MatroskaEnd{file_.size(), before, last_ms_}));
    } catch (const WriteFailure&) {
        file_.cut(before);
        throw;
    }
}

}  // namespace plendix
