#include "record/camera_recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/write_failure.h"
#include "record/open_segments.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds shortest_retry{1};
constexpr std::chrono::seconds longest_retry{32};
constexpr std::chrono::seconds proof{2};           // of writing, until the disk counts as willing again
constexpr std::chrono::seconds steady{10};         // the same, until it is asked every second again
constexpr std::chrono::seconds longest_pause{60};  // without frames a segment is ended then

}  // namespace

CameraRecorder::CameraRecorder(int number, RecordFolder& folder, std::chrono::milliseconds length)
    : number_(number), folder_(folder), length_(length) {}

void CameraRecorder::frame(const Frame& frame, Time now) {
    now_ = now;
    if (frame.codec == FrameCodec::jpeg)
        jpeg(frame);
    else
        h264(frame);
}

void CameraRecorder::jpeg(const Frame& frame) {
    const PictureFormat format = jpeg_format(frame.data);
    if (!format.usable()) {
        ++totals_.unreadable;
        return;
    }
    store(format, {{frame.data.data(), frame.data.size()}}, frame);
}

void CameraRecorder::h264(const Frame& frame) {
    split_h264(frame.data, parts_);
    if (parts_.picture.empty()) {
        ++totals_.unreadable;
        return;
    }
    const bool other_sets = !parts_.parameter_sets.empty() && parts_.parameter_sets != format_.parameter_sets;
    if (frame.key && other_sets) {
        const PictureFormat format = h264_format(parts_);
        if (!format.usable()) {
            ++totals_.unreadable;
            return;
        }
        store(format, parts_.picture, frame);
    } else if (format_.codec != FrameCodec::h264 || format_.parameter_sets.empty()) {
        ++totals_.unstarted;
    } else {
        store(format_, parts_.picture, frame);
    }
}

bool CameraRecorder::fits(const PictureFormat& format, const Frame& frame) const {
    if (!movie_ || !(format == format_)) return false;
    if (!frame.key) return true;
    const bool over = length_.count() > 0 && frame.arrival_ms - began_ms_ >= length_.count();
    return !over && frame.clock_epoch == clock_epoch_;
}

void CameraRecorder::store(const PictureFormat& format, const Pieces& picture, const Frame& frame) {
    if (!fits(format, frame)) {
        close();
        if (!frame.key) {
            ++(refusal_ ? totals_.unwritten : totals_.unstarted);
            return;
        }
        if (now_ >= next_try_) begin(PictureFormat(format), frame);
    }
    if (movie_)
        write(picture, frame);
    else
        ++totals_.unwritten;
}

void CameraRecorder::begin(const PictureFormat& format, const Frame& frame) {
    format_ = format;
    const std::string missing = folder_.missing();
    if (!missing.empty()) return refuse({missing, ENOENT});
    if (out_of_room(refusal_.code) && !folder_.has_room()) return refuse(Refusal(refusal_));
    try {
        stem_ = folder_.free_stem(number_, frame.time_ms);
        const std::string file = (folder_.root() / stem_).string();
        note_open_segment(folder_.root(), number_, stem_);
        movie_.emplace(file + ".mkv", format, frame.time_ms);
        motion_.emplace(file + ".motion", number_, frame.time_ms);
        began_ms_ = frame.arrival_ms;
        clock_epoch_ = frame.clock_epoch;
    } catch (const WriteFailure& failure) {
        refuse({failure.what(), failure.error()});
    } catch (const Failure&) {  // the muxer cannot use it
        movie_.reset();
        ++totals_.unreadable;
    }
}

void CameraRecorder::write(const Pieces& picture, const Frame& frame) {
    const std::uint64_t before = totals_.recorded;
    try {
        const std::int64_t time_ms = frame.arrival_ms - began_ms_;
        movie_->write(picture, frame.key, time_ms);
        ++totals_.recorded;
        last_frame_ = now_;
        if (frame.zones != MotionZones{}) motion_->write({time_ms, frame.motion, frame.zones});
        if (!good_since_) good_since_ = now_;
        if (now_ - *good_since_ >= proof) refusal_ = {};
        if (now_ - *good_since_ >= steady) retry_period_ = shortest_retry;
    } catch (const WriteFailure& failure) {
        fail({failure.what(), failure.error()}, before);
    } catch (const Failure&) {  // the muxer cannot use it, and is not asked to go on from it
        ++totals_.unreadable;
        close();
    }
}

/// A disk with room for a picture or two would be full once a second, and each time leave a tiny segment.
void CameraRecorder::fail(const Refusal& refusal, std::uint64_t recorded_before) {
    if (totals_.recorded == recorded_before) ++totals_.unwritten;
    close();
    refuse(refusal);
    next_try_ = now_ + retry_period_;
    retry_period_ = std::min(2 * retry_period_, longest_retry);
}

void CameraRecorder::refuse(const Refusal& refusal) {
    refusal_ = refusal;
    ++failures_;
    good_since_.reset();
    next_try_ = now_ + shortest_retry;
}

void CameraRecorder::retry() {
    next_try_ = {};
    retry_period_ = shortest_retry;
}

bool CameraRecorder::check(Time now) {
    if (!movie_) {
        if (now - now_ > longest_pause) refusal_ = {};  // nothing comes that could be refused
        return true;
    }
    if (!movie_->in_place()) {
        now_ = now;
        close();
        const std::string missing = folder_.missing();
        if (!missing.empty()) refuse({missing, ENOENT});
        return !missing.empty();
    }
    if (now - last_frame_ > longest_pause) close();
    return true;
}

void CameraRecorder::close() {
    if (!movie_) return;
    const bool empty = movie_->frames() == 0;
    try {
        movie_->close();
    } catch (const Failure&) {  // NOLINT(bugprone-empty-catch): it plays without its index
    }
    totals_.bytes += movie_->bytes();
    if (empty && movie_->in_place()) ::unlink(movie_->path().c_str());  // no player opens it
    if (!empty) closed_.push_back(stem_);
    movie_.reset();
    motion_.reset();
}

std::uint64_t CameraRecorder::open_bytes() const {
    return movie_ ? movie_->bytes() : 0;
}

std::optional<std::filesystem::path> CameraRecorder::open_stem() const {
    if (!movie_) return std::nullopt;
    return stem_;
}

std::vector<std::filesystem::path> CameraRecorder::take_closed() {
    return std::exchange(closed_, {});
}

}  // namespace plendix
