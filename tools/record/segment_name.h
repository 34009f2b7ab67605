// How the files of a recording are called: by camera, day and time, so that names sort as recorded.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace plendix {

enum class TimeNames { utc, local };

/// A segment by the time it began. Its files are "camera-1/2026-11-23/14-00-00" and an extension.
/// Another one of the same second is 14-00-00_02 and so on: '.' is before '_', so that it comes
/// second wherever names are sorted by their bytes.
struct SegmentName {
    std::int16_t camera = 0;  // 1 to 255
    std::int16_t copy = 1;
    std::int32_t day = 0;     // 20261123
    std::int32_t second = 0;  // of the day

    auto order() const { return std::tie(camera, day, second, copy); }
    bool operator<(const SegmentName& other) const { return order() < other.order(); }
    bool operator==(const SegmentName& other) const { return order() == other.order(); }
};

/// The extensions of a segment's files: the movie first.
constexpr const char* segment_extensions[] = {".mkv", ".motion", ".jpg", ".png"};

/// The name of a segment that begins at a time (UTC since 1970).
SegmentName segment_name(int camera, std::int64_t time_ms, TimeNames names);

/// "camera-1/2026-11-23/14-00-00": relative, without extension.
std::filesystem::path stem_path(const SegmentName& name);
std::filesystem::path segment_stem(int camera, std::int64_t time_ms, TimeNames names);
std::filesystem::path camera_folder(int camera);
std::filesystem::path day_folder(int camera, int day);

/// The stem or the first of its copies that no file of a segment in the folder has. Throws
/// Failure when there is none. The files are to be created with O_EXCL all the same.
std::filesystem::path free_stem(const std::filesystem::path& folder, const std::filesystem::path& stem);

/// Back from a relative stem; nothing when it is not exactly of this shape.
std::optional<SegmentName> parse_stem(const std::filesystem::path& stem);

/// The parts of it: 0 when the text is none.
int parse_camera_folder(std::string_view text);  // "camera-1"
int parse_day_folder(std::string_view text);     // "2026-11-23" gives 20261123
/// Events of a day that is over: "events-2026-11-23.jsonl"; back from it 0 when the text is none.
std::string event_file(int day);
int parse_event_file(std::string_view text);
/// Puts time and copy of "14-00-00" or "14-00-00_02" into the name; false when the text is none.
bool parse_time_stem(std::string_view text, SegmentName& name);

/// The time in the name as if it was UTC, in milliseconds since 1970.
std::int64_t nominal_ms(const SegmentName& name);

}  // namespace plendix
