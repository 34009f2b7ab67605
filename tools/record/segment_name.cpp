#include "record/segment_name.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr int most_cameras = 255;
constexpr int most_copies = 999;

/// The number that the text is in decimal digits and nothing else; -1 when it is none.
int digits(std::string_view text) {
    if (text.empty() || text.size() > 6) return -1;
    int value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

bool taken(const std::string& stem) {
    return std::any_of(std::begin(segment_extensions), std::end(segment_extensions),
                       [&stem](const char* extension) {
                           struct stat status {};
                           return ::lstat((stem + extension).c_str(), &status) == 0;
                       });
}

template <class... Values>
std::string printed(const char* format, Values... values) {
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string day_text(int day) {
    return printed("%04d-%02d-%02d", day / 10000, day / 100 % 100, day % 100);
}

}  // namespace

SegmentName segment_name(int camera, std::int64_t time_ms, TimeNames names) {
    const auto seconds = static_cast<std::time_t>(std::max<std::int64_t>(time_ms, 0) / 1000);
    std::tm parts{};
    if (names == TimeNames::utc) {
        gmtime_r(&seconds, &parts);
    } else {
        localtime_r(&seconds, &parts);
    }
    SegmentName name;
    name.camera = static_cast<std::int16_t>(camera);
    name.day = (parts.tm_year + 1900) * 10000 + (parts.tm_mon + 1) * 100 + parts.tm_mday;
    name.second = parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec;
    return name;
}

fs::path camera_folder(int camera) {
    return printed("camera-%d", camera);
}

fs::path day_folder(int camera, int day) {
    return camera_folder(camera) / day_text(day);
}

fs::path stem_path(const SegmentName& name) {
    std::string text = printed("%02d-%02d-%02d", name.second / 3600, name.second / 60 % 60, name.second % 60);
    if (name.copy > 1) text += printed("_%02d", name.copy);
    return day_folder(name.camera, name.day) / text;
}

fs::path segment_stem(int camera, std::int64_t time_ms, TimeNames names) {
    return stem_path(segment_name(camera, time_ms, names));
}

fs::path free_stem(const fs::path& folder, const fs::path& stem) {
    std::string text = stem.string();
    for (int copy = 2; copy <= most_copies + 1; ++copy) {
        if (!taken((folder / text).string())) return text;
        text = stem.string() + printed("_%02d", copy);
    }
    throw Failure("no name is free for '" + (folder / stem).string() + "': " + std::to_string(most_copies) +
                  " segments have it");
}

int parse_camera_folder(std::string_view text) {
    constexpr std::string_view prefix = "camera-";
    if (text.substr(0, prefix.size()) != prefix) return 0;
    text.remove_prefix(prefix.size());
    const int number = digits(text);
    return number >= 1 && number <= most_cameras && text.front() != '0' ? number : 0;
}

int parse_day_folder(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return 0;
    const int year = digits(text.substr(0, 4));
    const int month = digits(text.substr(5, 2));
    const int day = digits(text.substr(8, 2));
    if (year < 1900 || month < 1 || month > 12 || day < 1 || day > 31) return 0;
    return year * 10000 + month * 100 + day;
}

std::string event_file(int day) {
    return "events-" + day_text(day) + ".jsonl";
}

int parse_event_file(std::string_view text) {
    constexpr std::size_t prefix = 7, day_length = 10;
    if (text.size() < prefix + day_length) return 0;
    const int day = parse_day_folder(text.substr(prefix, day_length));
    return day != 0 && text == event_file(day) ? day : 0;
}

bool parse_time_stem(std::string_view text, SegmentName& name) {
    if (text.size() < 8 || text[2] != '-' || text[5] != '-') return false;
    const int hour = digits(text.substr(0, 2));
    const int minute = digits(text.substr(3, 2));
    const int second = digits(text.substr(6, 2));
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return false;
    int copy = 1;
    if (text.size() > 8) {
        const std::string_view number = text.substr(9);
        copy = digits(number);
        const bool padded = number.size() == 2 || (number.size() == 3 && number.front() != '0');
        if (text[8] != '_' || copy < 2 || copy > most_copies || !padded) return false;
    }
    name.second = hour * 3600 + minute * 60 + second;
    name.copy = static_cast<std::int16_t>(copy);
    return true;
}

std::optional<SegmentName> parse_stem(const fs::path& stem) {
    const std::string text = stem.string();
    const std::size_t first = text.find('/');
    const std::size_t second = first == std::string::npos ? first : text.find('/', first + 1);
    if (second == std::string::npos) return std::nullopt;
    const std::string_view view = text;
    SegmentName name;
    name.camera = static_cast<std::int16_t>(parse_camera_folder(view.substr(0, first)));
    name.day = parse_day_folder(view.substr(first + 1, second - first - 1));
    if (name.camera == 0 || name.day == 0 || !parse_time_stem(view.substr(second + 1), name))
        return std::nullopt;
    return name;
}

std::int64_t nominal_ms(const SegmentName& name) {
    std::tm parts{};
    parts.tm_year = name.day / 10000 - 1900;
    parts.tm_mon = name.day / 100 % 100 - 1;
    parts.tm_mday = name.day % 100;
    parts.tm_sec = name.second;
    return static_cast<std::int64_t>(timegm(&parts)) * 1000;
}

}  // namespace plendix
