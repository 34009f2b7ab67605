#include "record/matroska_writer.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

#include "container/ebml.h"
#include "container/matroska_beginning.h"
#include "container/matroska_ids.h"
#include "host/write_failure.h"

namespace plendix {
namespace {

constexpr std::int64_t cue_period_ms = 1000;  // a player need not jump more finely

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
      cluster_(format_.codec == FrameCodec::h264 && is_byte_stream(format_.parameter_sets)) {
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

void MatroskaWriter::write(const Pieces& picture, bool key, std::int64_t time_ms) {
    if (!open_) throw WriteFailure(path(), EBADF);
    last_ms_ = std::max(last_ms_ + 1, time_ms);
    const Pieces& cluster = cluster_.build(picture, key, last_ms_);
    const std::uint64_t position = file_.size();
    try {
        file_.append(cluster);
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
