// Recordings: what there is, playing, clips.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "host/clocks.h"
#include "host/descriptor.h"
#include "host/event_json.h"
#include "host/scratch_folder.h"
#include "host/still_file.h"
#include "host/write_failure.h"
#include "http/http_error.h"
#include "record/clip_export.h"
#include "record/clock_text.h"
#include "serve/house.h"
#include "serve/live_responses.h"
#include "serve/recordings.h"
#include "serve/routes.h"
#include "usage.h"

namespace plendix {
namespace {

using nlohmann::ordered_json;

constexpr std::int64_t a_day_ms = 86'400'000;
constexpr std::int64_t longest_clip_ms = 3'600'000;

/// A moment as the page writes it, "2026-11-23T14:00:05.250Z"; `otherwise` where it is not given.
std::int64_t moment(const Request& request, const char* name, std::int64_t otherwise) {
    const auto text = request.asked(name);
    return text ? parse_moment(name, *text, true, DayMeans::its_end) : otherwise;
}

struct Span {
    std::int64_t from_ms, to_ms;
};

/// Without a beginning so long, up to now without an end.
Span span_of(const Request& request, std::int64_t usual_ms = a_day_ms) {
    const std::int64_t to_ms = moment(request, "to", utc_ms());
    const Span span{moment(request, "from", to_ms - usual_ms), to_ms};
    if (span.from_ms >= span.to_ms) throw UsageError("to is not after from");
    return span;
}

ordered_json spans_json(const std::vector<MotionSpan>& spans) {
    ordered_json json = ordered_json::array();
    for (const MotionSpan& span : spans)
        json.push_back({{"begin", utc_text(span.first_ms)}, {"end", utc_text(span.last_ms)}});
    return json;
}

Response overview(const Request& request, const RecordingIndex& index) {
    const int camera = request.number("camera");
    const Span span = span_of(request);
    ordered_json segments = ordered_json::array();
    for (const RecordedSegment& segment : index.segments(camera, span.from_ms, span.to_ms))
        segments.push_back({{"begin", utc_text(segment.begin_ms)},
                            {"end", utc_text(segment.end_ms)},
                            {"bytes", segment.bytes},
                            {"codec", segment.codec == FrameCodec::jpeg ? "jpeg" : "h264"}});
    const auto motion = index.motion(camera, span.from_ms, span.to_ms, parse_zones({}));
    return json_response({{"segments", segments}, {"motion", spans_json(motion)}});
}

Response search(const Request& request, const RecordingIndex& index) {
    const auto zones = request.asked("zones");
    const Span span = span_of(request);
    const auto found = index.motion(request.number("camera"), span.from_ms, span.to_ms,
                                    parse_zones(zones ? std::vector{*zones} : std::vector<std::string>()));
    return json_response({{"spans", spans_json(found)}});
}

double speed_of(const Request& request) {
    const auto text = request.asked("speed");
    if (!text) return 1;
    char* end = nullptr;
    const double speed = std::strtod(text->c_str(), &end);
    if (end != text->c_str() + text->size() || !(speed >= 0.1 && speed <= 16))
        throw UsageError("speed: give a number from 0.1 to 16");
    return speed;
}

Response play(const Request& request, Recordings& recordings) {
    const auto viewer = std::make_shared<Viewer>(Viewer::Limits());
    const auto stream = std::make_shared<PageResponse>(viewer);
    viewer->on_arrival([weak = std::weak_ptr<Stream>(stream)] {
        if (const auto here = weak.lock()) here->wake();
    });
    if (!recordings.playbacks().play(recordings.index(), request.number("camera"),
                                     moment(request, "from", utc_ms()), speed_of(request), viewer))
        throw HttpError(503, std::to_string(Playbacks::most) +
                                 " recordings are being played, and no more can be: close one of them");
    return stream_response("application/octet-stream", stream).with("Cache-Control", "no-store");
}

/// A file that has no name any more: it goes with the response.
class FileResponse : public Stream {
public:
    explicit FileResponse(Descriptor file) : file_(std::move(file)) {}

    StreamRead read(std::uint8_t* to, std::size_t size) override {
        const ssize_t length = ::read(file_.get(), to, size);
        if (length < 0) throw Failure("cannot read a clip: " + error_text(errno));
        if (length == 0) return {StreamRead::State::end, 0};
        return {StreamRead::State::bytes, static_cast<std::size_t>(length)};
    }

private:
    Descriptor file_;
};

Response file_response(const std::string& type, const std::filesystem::path& path) {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0)
        throw HttpError(500, "cannot read a clip: " + error_text(errno));
    Response response = stream_response(type, std::make_shared<FileResponse>(std::move(file)));
    response.stream_size = static_cast<std::uint64_t>(status.st_size);
    return response;
}

/// Beside the recordings, where there is room for clips; those of others may be for reading only.
ScratchFolder place_of_clips(const std::filesystem::path& recordings) {
    return ::access(recordings.c_str(), W_OK) == 0 ? ScratchFolder(recordings) : ScratchFolder();
}

ClipPlan clip_plan(const Request& request, const RecordingIndex& index) {
    const Span span = span_of(request, longest_clip_ms);
    if (span.to_ms - span.from_ms > longest_clip_ms) throw UsageError("a clip is an hour at most");
    ClipPlan plan;
    plan.folder = index.folder();
    plan.camera = request.number("camera");
    plan.from_ms = span.from_ms;
    plan.to_ms = span.to_ms;
    plan.utc = true;
    return plan;
}

/// About as many bytes as the clip will have.
double clip_bytes(const ClipPlan& plan, const RecordingIndex& index) {
    double bytes = 0;
    for (const RecordedSegment& segment : index.segments(plan.camera, plan.from_ms, plan.to_ms)) {
        const auto length_ms = static_cast<double>(segment.end_ms - segment.begin_ms);
        const auto wanted_ms = static_cast<double>(std::min(segment.end_ms, plan.to_ms) -
                                                   std::max(segment.begin_ms, plan.from_ms));
        if (wanted_ms > 0) bytes += static_cast<double>(segment.bytes) * wanted_ms / length_ms;
    }
    return bytes;
}

void require_room(const ScratchFolder& place, double bytes) {
    std::error_code unknown;
    const auto room = std::filesystem::space(place.path(), unknown).available;
    if (!unknown && static_cast<double>(room) < bytes) throw WriteFailure(place.path().parent_path(), ENOSPC);
}

/// Calls `make` with a plan and a place for its clip, and tells what is the disk's fault from what is the
/// recording's.
template <typename Make>
Response with_clip(const Request& request, const Recordings& recordings, Make make) {
    const RecordingIndex& index = *recordings.index();
    ClipPlan plan = clip_plan(request, index);
    try {
        const ScratchFolder place = place_of_clips(plan.folder);
        require_room(place, clip_bytes(plan, index));
        plan.output = place.path() / "clip.mkv";
        return make(plan, [&] { return recordings.ended() || request.given_up(); });
    } catch (const WriteFailure& failure) {
        throw HttpError(507, failure.what());
    } catch (const Failure& failure) {
        throw HttpError(409, failure.what());
    }
}

/// Whether there would be a clip, for those who cannot see why a download fails.
Response checked(const Request& request, const Recordings& recordings) {
    return with_clip(request, recordings, [](const ClipPlan& plan, const Stopped& stopped) {
        check_clip(plan, stopped);
        return empty_response();
    });
}

Response clip(const Request& request, const Recordings& recordings) {
    return with_clip(request, recordings, [](const ClipPlan& plan, const Stopped& stopped) {
        export_clip(plan, stopped);
        const std::string name = "camera-" + std::to_string(plan.camera) + '-' + moment_in_name(plan.from_ms);
        return file_response("video/x-matroska", plan.output)
            .with("Content-Disposition", "attachment; filename=\"" + name + ".mkv\"");
    });
}

/// Which cameras there is something of, those that are shown or not.
Response recorded(const RecordingIndex& index) {
    return json_response({{"cameras", index.cameras()}});
}

}  // namespace

void add_record_routes(Router& router, House& house, Recordings& recordings) {
    const auto index = recordings.index();
    if (!index->folder().empty()) ScratchFolder::remove_left(index->folder());
    const auto add = [&](const char* path, Lane lane, auto handle) {
        router.add("GET", std::string("/api/recordings/{camera}") + path,
                   [&house, index, handle](const Request& request) {
                       if (index->folder().empty()) throw HttpError(404, "nothing is recorded here");
                       if (!index->has(request.number("camera"))) camera_of(request, house);
                       return handle(request);
                   },
                   {false, lane});
    };
    router.add("GET", "/api/recordings", [index](const Request&) { return recorded(*index); },
               {false, Lane::reader});
    add("", Lane::reader, [index](const Request& request) { return overview(request, *index); });
    add("/search", Lane::reader, [index](const Request& request) { return search(request, *index); });
    add("/play", Lane::reader, [&recordings](const Request& request) { return play(request, recordings); });
    add("/export/check", Lane::reader,
        [&recordings](const Request& request) { return checked(request, recordings); });
    add("/export", Lane::long_job,
        [&recordings](const Request& request) { return clip(request, recordings); });
}

}  // namespace plendix
