#include "record/camera_recorder.h"

#include <cerrno>
#include <utility>

#include "record/write_failure.h"

namespace plendix {
namespace {

constexpr std::chrono::seconds retry_period{1};
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
    store(format, frame.data, frame);
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

void CameraRecorder::store(const PictureFormat& format, const Bytes& picture, const Frame& frame) {
    if (!fits(format, frame)) {
        close();
        if (!frame.key) {
            ++(refusal_.empty() ? totals_.unstarted : totals_.unwritten);
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
    if (!missing.empty()) return refuse(missing, ENOENT);
    try {
        stem_ = folder_.free_stem(number_, frame.time_ms);
        const std::string file = (folder_.root() / stem_).string();
        movie_.emplace(file + ".mkv", format, frame.time_ms);
        motion_.emplace(file + ".motion", number_, frame.time_ms);
        began_ms_ = frame.arrival_ms;
        clock_epoch_ = frame.clock_epoch;
        refusal_.clear();
    } catch (const WriteFailure& failure) {
        movie_.reset();
        refuse(failure.what(), failure.error());
    } catch (const Failure&) {  // the muxer cannot use it
        movie_.reset();
        ++totals_.unreadable;
    }
}

void CameraRecorder::write(const Bytes& picture, const Frame& frame) {
    try {
        const std::int64_t time_ms = frame.arrival_ms - began_ms_;
        movie_->write(picture, frame.key, time_ms);
        ++totals_.recorded;
        last_frame_ = now_;
        if (frame.zones != MotionZones{}) motion_->write({time_ms, frame.motion, frame.zones});
    } catch (const WriteFailure& failure) {
        if (last_frame_ != now_) ++totals_.unwritten;
        close();
        refuse(failure.what(), failure.error());
    } catch (const Failure&) {  // the muxer cannot use it, and is not asked to go on from it
        ++totals_.unreadable;
        close();
    }
}

void CameraRecorder::refuse(const std::string& why, int code) {
    refusal_ = why;
    refusal_code_ = code;
    next_try_ = now_ + retry_period;
}

void CameraRecorder::check(Time now) {
    if (!movie_) return;
    if (!movie_->in_place()) {
        now_ = now;
        const std::string gone = "'" + movie_->path().string() + "' is gone";
        close();
        refuse(gone, ENOENT);
    } else if (now - last_frame_ > longest_pause) {
        close();
    }
}

void CameraRecorder::close() {
    if (!movie_) return;
    try {
        movie_->close();
    } catch (const WriteFailure&) {  // NOLINT(bugprone-empty-catch): it plays without its index
    }
    totals_.bytes += movie_->bytes();
    movie_.reset();
    motion_.reset();
    closed_.push_back(stem_);
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
