#include "check/picture_rules.h"

#include <algorithm>
#include <cmath>

#include "check/packet_text.h"
#include "decode/jpeg_scan.h"
#include "link/driver_rules.h"

namespace plendix::check {
namespace {

constexpr int step_across = 64, step_down = 32;  // sensor pixels, of the driver's areas
constexpr int pictures_in_a_row = 20;

}  // namespace

link::Area whole_area(const link::Area& sensor) {
    const PictureSize size = largest_picture({sensor.width(), sensor.height()});
    return {sensor.x0, sensor.y0, sensor.x0 + size.width, sensor.y0 + size.height};
}

link::Area part_of(const link::Area& whole) {
    const int columns = whole.width() / step_across, rows = whole.height() / step_down;
    const int across = columns / 2, down = rows / 2;
    const int left = whole.x0 + (columns - across) / 2 * step_across;
    const int top = whole.y0 + (rows - down) / 2 * step_down;
    return {left, top, left + across * step_across, top + down * step_down};
}

std::string request_text(const Shot& shot) {
    return "RRQ " + link::picture_name(shot.asked);
}

std::string area_text(const link::Area& area) {
    return '(' + std::to_string(area.x0) + ", " + std::to_string(area.y0) + ") to (" +
           std::to_string(area.x1) + ", " + std::to_string(area.y1) + ')';
}

std::size_t content_size(const Shot& shot) {
    const link::Bytes& payload = shot.fetched.payload;
    if (!shot.trailer.h264) {
        const std::size_t end = scan_jpeg({payload.data(), payload.size()}).end;
        if (end > 0) return end;
    }
    const auto last =
        std::find_if(payload.rbegin(), payload.rend(), [](std::uint8_t byte) { return byte != 0; });
    return static_cast<std::size_t>(payload.rend() - last);
}

void Album::judge(const Shot& shot) {
    judge_mac(shot);
    const link::Bytes& payload = shot.fetched.payload;
    const std::size_t content = content_size(shot);
    const auto behind = payload.begin() + static_cast<std::ptrdiff_t>(content);
    const auto other = std::find_if(behind, payload.end(), [](std::uint8_t byte) { return byte != 0; });
    const bool full = payload.size() - content < shot.fetched.block_size;
    std::string came =
        std::to_string(payload.size() - content) + " bytes behind a picture of " + std::to_string(content);
    if (other != payload.end()) came += ", with " + first_bytes({&*other, 1}) + " among them";
    findings().judge(
        Rule::pictures_padding, other == payload.end() && full,
        {request_text(shot), came, "zeros, fewer than " + std::to_string(shot.fetched.block_size)});
}

void Album::judge_mac(const Shot& shot) {
    const auto& mac = shot.trailer.mac;
    const auto text = [](const std::array<std::uint8_t, 6>& bytes) {
        return first_bytes({bytes.data(), bytes.size()});
    };
    const bool zero = mac == std::array<std::uint8_t, 6>{};
    const std::string expected = mac_ ? text(*mac_) + ", as before" : "an address";
    findings().judge(Rule::pictures_mac, !zero && (!mac_ || *mac_ == mac),
                     {request_text(shot), text(mac) + " at byte 6 of the trailer", expected});
    mac_ = mac;  // each change counts once
}

void Album::judge_area(Rule rule, const Shot& shot) {
    if (!shot.good()) return findings().skip(rule, shot.trouble);
    const link::Area& area = shot.trailer.area;
    const bool within =
        area.x0 >= sensor_.x0 && area.y0 >= sensor_.y0 && area.x1 <= sensor_.x1 && area.y1 <= sensor_.y1;
    findings().judge(rule, within,
                     {request_text(shot), area_text(area), "an area of the sensor " + area_text(sensor_)});
    findings().pass(rule, area == shot.asked.area ? "" : "the camera pictures " + area_text(area));
}

void Album::judge_half(Rule rule, const Shot& shot) {
    if (!shot.good()) return findings().skip(rule, shot.trouble);
    findings().pass(rule, shot.trailer.full ? "the camera pictures full resolution" : "");
}

void Album::judge_sizes(Rule rule, const Shot& fine, const Shot& coarse) {
    if (!fine.good() || !coarse.good())
        return findings().skip(rule, fine.good() ? coarse.trouble : fine.trouble);
    const std::size_t more = content_size(fine), less = content_size(coarse);
    const std::string sizes = std::to_string(more) + " and " + std::to_string(less) + " bytes";
    const bool followed = fine.trailer.h264 || fine.trailer.quality != coarse.trailer.quality;
    findings().judge(rule, more >= less || !followed,
                     {request_text(fine) + ", then " + link::picture_name(coarse.asked), sizes,
                      "more bytes for the first"});
    findings().pass(rule, followed ? sizes : "the trailer says one quality");
}

void check_row(Interview& interview, const link::FileName& picture) {
    Conversation& conversation = interview.open();
    link::FileName next = picture;
    next.key = true;
    auto longest = Clock::duration::zero();
    const auto begun = Clock::now();
    for (int i = 0; i < pictures_in_a_row; ++i) {
        const auto asked = Clock::now();
        const Request request = request_for(link::picture_name(next), true);
        const Fetched fetched = fetch(conversation, request);
        const std::string over = interview.examination().over();
        if (!fetched.whole() && !over.empty()) return interview.findings().skip(Rule::stream_row, over);
        if (!fetched.whole())
            return interview.findings().fail(
                Rule::stream_row,
                {"RRQ " + request.name, "picture " + std::to_string(i + 1) + ": " + fetched.trouble,
                 "the picture"});
        longest = std::max(longest, Clock::now() - asked);
        next.key = false;
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();
    const auto ms = std::chrono::duration_cast<milliseconds>(longest).count();
    interview.findings().pass(Rule::stream_row, std::to_string(std::lround(pictures_in_a_row / seconds)) +
                                                    " a second, " + std::to_string(ms) + " ms at most");
}

}  // namespace plendix::check
