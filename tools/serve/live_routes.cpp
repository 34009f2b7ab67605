// Live pictures.
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "host/clocks.h"
#include "host/event_json.h"
#include "http/http_error.h"
#include "serve/house.h"
#include "serve/live_responses.h"
#include "serve/no_signal.h"
#include "serve/routes.h"
#include "serve/thumbnail.h"
#include "serve/walls.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::int64_t widest = 8192;

std::function<void()> waker(const std::shared_ptr<Stream>& stream) {
    return [weak = std::weak_ptr<Stream>(stream)] {
        if (const auto here = weak.lock()) here->wake();
    };
}

Response no_signal(const LiveHub::Sight& sight) {
    Response response = bytes_response("image/jpeg", shared_bytes(nullptr, no_signal_jpeg()));
    response.status = 503;
    if (sight.age_ms) response.with("X-Picture-Age-Ms", std::to_string(*sight.age_ms));
    return response.with("Cache-Control", "no-store").with("Retry-After", "2");
}

Response picture(const Request& request, House& house) {
    const int camera = camera_of(request, house);
    const auto width = static_cast<int>(request.asked_number("width", 1, widest, 0));
    const auto sight = house.hub().sight(camera, milliseconds_of(std::chrono::steady_clock::now()));
    if (!sight.picture) return no_signal(sight);
    const Frame& frame = *sight.picture;
    SharedBytes jpeg;
    if (width == 0 && frame.codec == FrameCodec::jpeg)
        jpeg = shared_bytes(sight.picture, frame.data);
    else
        jpeg = shared_bytes(width > 0 ? make_thumbnail(frame, width).jpeg : whole_jpeg(frame));
    if (jpeg.size == 0) throw HttpError(503, "the newest picture could not be decoded");
    return bytes_response("image/jpeg", std::move(jpeg))
        .with("X-Picture-Age-Ms", std::to_string(*sight.age_ms))
        .with("X-Picture-Time", utc_text(frame.time_ms))
        .with("Cache-Control", "no-store");
}

/// Where nothing is to come, a program is not left waiting.
void require_wanted(const nlohmann::ordered_json& summary) {
    const std::string state = summary.is_null() ? "off" : summary["state"].get<std::string>();
    if (state == "off") throw HttpError(503, "the camera is switched off");
    if (state == "refused") throw HttpError(503, summary["reason"].get<std::string>());
}

Response format_stream(House& house, int camera, StreamFormat format) {
    require_wanted(house.board().summary(camera));
    const FramePointer newest = house.hub().newest(camera);
    if (newest && !carries(format, newest->codec))
        throw HttpError(
            409, std::string(format_name(format)) + " has no room for what the camera sends: " +
                     (newest->codec == FrameCodec::h264 ? "take .mkv, .ts or .mp4" : "take .mjpeg or .mkv"));
    const auto viewer = std::make_shared<Viewer>(Viewer::Limits());
    const auto stream = std::make_shared<FormatResponse>(format, viewer);
    viewer->on_arrival(waker(stream));
    house.hub().follow(camera, viewer);
    return stream_response(stream->media_type(), stream).with("Cache-Control", "no-store");
}

Response page_stream(House& house, int camera) {
    const auto viewer = std::make_shared<Viewer>(Viewer::Limits());
    const auto stream = std::make_shared<PageResponse>(camera, viewer, house.board());
    viewer->on_arrival(waker(stream));
    house.hub().follow(camera, viewer);
    house.feed().follow(stream, waker(stream));  // it tells of pauses, too
    return stream_response("application/octet-stream", stream).with("Cache-Control", "no-store");
}

Wall::View view_of(const Request& request) {
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    const auto visible = body.is_object() ? body.find("visible") : body.end();
    if (visible == body.end() || !visible->is_array())
        throw UsageError("the body needs \"visible\": the cameras' numbers");
    Wall::View view;
    for (const auto& camera : *visible) {
        if (!camera.is_number_integer()) throw UsageError("visible: give the cameras' numbers");
        const auto number = camera.get<std::int64_t>();
        if (number >= 1 && number <= 255) view.visible.insert(static_cast<int>(number));
    }
    const auto width = body.find("width");
    const auto rate = body.find("rate");
    if (width != body.end() && width->is_number())
        view.width = static_cast<int>(std::clamp(width->get<double>(), 1.0, 8192.0));
    if (rate != body.end() && rate->is_number()) view.rate = std::clamp(rate->get<double>(), 0.1, 60.0);
    return view;
}

}  // namespace

void add_live_routes(Router& router, House& house) {
    router.add("GET", "/camera/{camera}.jpg",
               [&house](const Request& request) { return picture(request, house); }, {false, Lane::worker});
    constexpr std::array<std::pair<const char*, StreamFormat>, 4> formats{
        {{"mjpeg", StreamFormat::jpeg_parts},
         {"mkv", StreamFormat::matroska},
         {"ts", StreamFormat::mpeg_ts},
         {"mp4", StreamFormat::mp4}}};
    for (const auto& [name, format] : formats)
        router.add("GET", std::string("/camera/{camera}.") + name,
                   [&house, kind = format](const Request& request) {
                       return format_stream(house, camera_of(request, house), kind);
                   });
    router.add("GET", "/api/live/{camera}",
               [&house](const Request& request) { return page_stream(house, camera_of(request, house)); });
    const auto walls = std::make_shared<Walls>();
    router.add("GET", "/api/wall", [&house, walls](const Request&) {
        const auto [name, wall] = walls->open();
        const auto stream = std::make_shared<WallResponse>(name, wall);
        wall->on_arrival(waker(stream));
        house.thumbnailer().serve(wall);
        return stream_response("application/octet-stream", stream).with("Cache-Control", "no-store");
    });
    router.add("POST", "/api/wall/{name:text}", [walls](const Request& request) {
        const auto wall = walls->find(request.text("name"));
        if (!wall) throw HttpError(404, "this wall is no longer looked at");
        wall->look_at(view_of(request));
        return empty_response();
    });
}

}  // namespace plendix
