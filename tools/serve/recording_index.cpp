#include "serve/recording_index.h"

#include <sys/stat.h>

#include <algorithm>

#include "record/movie_file.h"
#include "record/segment_files.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_known =
    100'000;  // movies; a year of one camera in segments of ten minutes is half
constexpr std::int64_t motion_gap_ms = 5000;  // as the recorder holds motion

}  // namespace

RecordingIndex::Known RecordingIndex::know(const std::filesystem::path& file) const {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (const auto found = known_.find(file.string()); found != known_.end()) return found->second;
    }
    const MovieFile movie(file);
    const bool jpeg = movie.video().codecpar->codec_id == AV_CODEC_ID_MJPEG;
    const Known known{movie.start_ms(), jpeg ? FrameCodec::jpeg : FrameCodec::h264};
    const std::lock_guard<std::mutex> lock(mutex_);
    if (known_.size() >= most_known) known_.clear();
    known_[file.string()] = known;
    return known;
}

std::vector<int> RecordingIndex::cameras() const {
    return folder_.empty() ? std::vector<int>() : recorded_cameras(folder_);
}

bool RecordingIndex::has(int camera) const {
    const std::vector<int> there = cameras();
    return std::binary_search(there.begin(), there.end(), camera);
}

std::vector<RecordedSegment> RecordingIndex::segments(int camera, std::int64_t from_ms, std::int64_t to_ms,
                                                      std::size_t most) const {
    std::vector<RecordedSegment> segments;
    if (folder_.empty()) return segments;
    for (const SegmentName& name : segments_near(folder_, camera, ".mkv", from_ms, to_ms)) {
        if (segments.size() >= most) break;
        RecordedSegment segment;
        segment.file = folder_ / (stem_path(name).string() + ".mkv");
        struct stat status {};
        if (::stat(segment.file.c_str(), &status) != 0) continue;  // it went meanwhile
        try {
            const Known known = know(segment.file);
            segment.begin_ms = known.begin_ms;
            segment.codec = known.codec;
        } catch (const Failure&) {
            continue;
        }
        segment.end_ms = std::max(changed_ms(status), segment.begin_ms);
        segment.bytes = static_cast<std::uint64_t>(status.st_size);
        if (segment.begin_ms < to_ms && segment.end_ms > from_ms) segments.push_back(segment);
    }
    std::sort(segments.begin(), segments.end(),
              [](const auto& one, const auto& other) { return one.begin_ms < other.begin_ms; });
    return segments;
}

std::vector<MotionSpan> RecordingIndex::motion(int camera, std::int64_t from_ms, std::int64_t to_ms,
                                               const MotionZones& zones) const {
    if (folder_.empty()) return {};
    MotionQuery query;
    query.camera = camera;
    query.from_ms = from_ms;
    query.to_ms = to_ms;
    query.zones = zones;
    query.gap_ms = motion_gap_ms;
    std::vector<std::string> faults;  // files that cannot be read have no motion to show
    try {
        return find_motion(folder_, query, faults);
    } catch (const Failure&) {
        return {};  // nothing of this camera yet
    }
}

}  // namespace plendix
