#include "record/motion_search.h"

#include <algorithm>
#include <cstring>
#include <regex>
#include <tuple>

#include "record/motion_file.h"
#include "record/segment_files.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

std::uint64_t bits(const MotionZones& zones) {
    std::uint64_t value = 0;
    std::memcpy(&value, zones.data(), zones.size());
    return value;
}

/// Lengthens the last span or begins one; `spans` are those of one camera, and times ascend.
void add(std::vector<MotionSpan>& spans, const MotionSpan& span, std::int64_t gap_ms) {
    if (spans.empty() || span.first_ms - spans.back().last_ms > gap_ms) {
        spans.push_back(span);
    } else {
        spans.back().last_ms = std::max(spans.back().last_ms, span.last_ms);
    }
}

void search_file(const fs::path& path, int camera, const MotionQuery& query, std::vector<MotionSpan>& found) {
    const MotionBounds bounds = motion_bounds(path);
    if (bounds.first_ms >= query.to_ms || bounds.last_ms < query.from_ms) return;
    const MotionFile file(path);
    const std::uint64_t zones = bits(query.zones);
    std::vector<MotionSpan> spans;
    for (std::size_t i = 0; i < file.size(); ++i) {
        const MotionRecord record = file.record(i);
        const std::int64_t time_ms = file.start_ms() + record.since_start_ms;
        if (time_ms < query.from_ms || time_ms >= query.to_ms || (bits(record.zones) & zones) == 0) continue;
        if (query.enabled_only && !record.enabled) continue;
        add(spans, {camera, time_ms, time_ms}, query.gap_ms);
    }
    found.insert(found.end(), spans.begin(), spans.end());
}

/// Segments may overlap where the clock was set back.
std::vector<MotionSpan> merged(std::vector<MotionSpan> spans, std::int64_t gap_ms) {
    std::sort(spans.begin(), spans.end(), [](const MotionSpan& a, const MotionSpan& b) {
        return std::tie(a.first_ms, a.last_ms) < std::tie(b.first_ms, b.last_ms);
    });
    std::vector<MotionSpan> result;
    for (const MotionSpan& span : spans)
        add(result, span, gap_ms);
    return result;
}

std::vector<MotionSpan> search_camera(const fs::path& folder, int camera, const MotionQuery& query,
                                      std::vector<std::string>& faults) {
    std::vector<MotionSpan> spans;
    for (const SegmentName& name : segments_near(folder, camera, ".motion", query.from_ms, query.to_ms)) {
        try {
            search_file(folder / (stem_path(name).string() + ".motion"), camera, query, spans);
        } catch (const Failure& failure) {
            faults.emplace_back(failure.what());
        }
    }
    return merged(std::move(spans), query.gap_ms);
}

/// "3" or "3-5", 0 to 7
std::pair<int, int> range(const std::ssub_match& first, const std::ssub_match& last) {
    const int from = std::stoi(first);
    return {from, last.matched ? std::stoi(last) : from};
}

}  // namespace

std::vector<MotionSpan> find_motion(const fs::path& folder, const MotionQuery& query,
                                    std::vector<std::string>& faults) {
    std::vector<int> cameras = recorded_cameras(folder);
    if (cameras.empty()) throw Failure("'" + folder.string() + "' holds no recording by camera and day");
    if (query.camera != 0) {
        if (!std::binary_search(cameras.begin(), cameras.end(), query.camera))
            throw Failure("'" + folder.string() + "' has nothing of camera " + std::to_string(query.camera));
        cameras.assign(1, query.camera);
    }
    std::vector<MotionSpan> found;
    for (const int camera : cameras) {
        const auto spans = search_camera(folder, camera, query, faults);
        found.insert(found.end(), spans.begin(), spans.end());
    }
    std::sort(found.begin(), found.end(), [](const MotionSpan& a, const MotionSpan& b) {
        return std::tie(a.first_ms, a.camera) < std::tie(b.first_ms, b.camera);
    });
    return found;
}

MotionZones parse_zones(const std::vector<std::string>& texts) {
    static const std::regex form("([0-7])(?:-([0-7]))?,([0-7])(?:-([0-7]))?");
    MotionZones zones{};
    if (texts.empty()) zones.fill(0xFF);
    for (const std::string& text : texts) {
        std::smatch parts;
        std::pair<int, int> rows{1, 0}, columns{1, 0};
        if (std::regex_match(text, parts, form)) {
            rows = range(parts[1], parts[2]);
            columns = range(parts[3], parts[4]);
        }
        if (rows.first > rows.second || columns.first > columns.second)
            throw UsageError(
                "--zones '" + text +
                "' is not ROWS,COLUMNS with 0 to 7 each, as in 2-4,0-3 or 7,0 (row 0 is the top, "
                "column 0 the left)");
        for (int row = rows.first; row <= rows.second; ++row)
            for (int column = columns.first; column <= columns.second; ++column)
                zones[static_cast<std::size_t>(row)] |= static_cast<std::uint8_t>(0x80U >> column);
    }
    return zones;
}

}  // namespace plendix
