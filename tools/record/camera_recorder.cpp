#include "record/camera_recorder.h"

#include <string>

#include "host/arrival_queue.h"
#include "plugin/host_records.h"

namespace plendix {

CameraRecorder::CameraRecorder(int number) : number_(number) {}

std::optional<Event> CameraRecorder::frame(const Arrival& arrival) {
    if (totals_.frames == 0) totals_.first_ms = arrival.time_ms;
    totals_.last_ms = arrival.time_ms;
    ++totals_.frames;
    totals_.bytes += arrival.data.size();
    if (arrival.key) ++totals_.key_frames;
    switch (arrival.data_type) {
        case DataTypeJpeg:
            jpeg(arrival);
            break;
        case DataTypeH264:
            h264(arrival);
            break;
        default:
            ++totals_.unreadable;
    }
    if (arrival.recording == marked_) return std::nullopt;
    marked_ = arrival.recording;
    Event event{arrival.time_ms, number_, EventKind::recording};
    event.values["active"] = marked_;
    return event;
}

void CameraRecorder::jpeg(const Arrival& arrival) {
    const PictureFormat format = jpeg_format(arrival.data);
    if (!format.usable()) {
        ++totals_.unreadable;
        return;
    }
    use_file_for(format, arrival.time_ms);
    store(arrival.data, arrival);
}

void CameraRecorder::h264(const Arrival& arrival) {
    const H264Frame frame = split_h264(arrival.data);
    if (frame.picture.empty()) {
        ++totals_.unreadable;
        return;
    }
    if (arrival.after_gap || format_.codec != FrameCodec::h264) needs_key_ = true;
    if (arrival.key && !frame.parameter_sets.empty()) {
        const PictureFormat format = h264_format(frame);
        if (!format.usable()) {
            ++totals_.unreadable;
            return;
        }
        use_file_for(format, arrival.time_ms);
        needs_key_ = false;
    }
    if (needs_key_) {
        ++totals_.unstarted;
        return;
    }
    store(frame.picture, arrival);
}

void CameraRecorder::use_file_for(const PictureFormat& format, std::int64_t start_ms) {
    if (writer_ && format == format_) return;
    close();
    std::string name = "camera-" + std::to_string(number_);
    if (!files_.empty()) name += '-' + std::to_string(files_.size() + 1);
    writer_ = std::make_unique<MatroskaWriter>(name + ".mkv", format, start_ms);
    files_.push_back(writer_->path());
    format_ = format;
}

void CameraRecorder::store(const Bytes& picture, const Arrival& arrival) {
    writer_->write(picture, arrival.key, arrival.time_ms);
    ++totals_.recorded;
}

void CameraRecorder::count(const Event& event) {
    if (event.kind == EventKind::motion) ++totals_.motion_events;
    if (event.values.contains("lost_block")) ++totals_.lost_blocks;
    if (event.values.contains("timeout")) ++totals_.timeouts;
    if (event.kind == EventKind::connection && event.values.value("connected", false)) ++totals_.connections;
}

void CameraRecorder::close() {
    writer_.reset();
}

}  // namespace plendix
