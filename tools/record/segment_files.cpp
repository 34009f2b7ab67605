#include "record/segment_files.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>

#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t widest_offset_ms = 15LL * 3600 * 1000;  // of local time from UTC

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

OpenFolder open_folder(const fs::path& path) {
    OpenFolder folder(::opendir(path.c_str()));
    if (!folder && errno != ENOENT && errno != ENOTDIR)
        throw Failure("cannot list '" + path.string() + "': " + error_text(errno));
    return folder;
}

template <class Visit>
void for_each_name(const OpenFolder& folder, Visit visit) {
    if (!folder) return;
    while (const dirent* entry = ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe): own stream
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") visit(entry->d_name);
    }
}

std::vector<int> numbers_in(const fs::path& path, int (*parse)(std::string_view)) {
    std::vector<int> numbers;
    for_each_name(open_folder(path), [&](const char* name) {
        if (const int number = parse(name); number != 0) numbers.push_back(number);
    });
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

}  // namespace

std::vector<std::string> names_in(const fs::path& folder) {
    std::vector<std::string> names;
    for_each_name(open_folder(folder), [&names](const char* name) { names.emplace_back(name); });
    return names;
}

std::vector<int> recorded_cameras(const fs::path& folder) {
    return numbers_in(folder, parse_camera_folder);
}

std::vector<int> recorded_days(const fs::path& folder, int camera) {
    return numbers_in(folder / camera_folder(camera), parse_day_folder);
}

bool parse_segment_file(const std::string& text, SegmentFile& file) {
    const std::size_t dot = text.find('.');
    if (dot == std::string::npos) return false;
    file.extension = text.substr(dot);
    const auto* const end = std::end(segment_extensions);
    return std::find(std::begin(segment_extensions), end, file.extension) != end &&
           parse_time_stem(std::string_view(text).substr(0, dot), file.name);
}

std::vector<SegmentFile> segment_files(const fs::path& folder, int camera, int day) {
    std::vector<SegmentFile> files;
    const OpenFolder open = open_folder(folder / day_folder(camera, day));
    for_each_name(open, [&](const char* name) {
        SegmentFile file;
        file.name.camera = static_cast<std::int16_t>(camera);
        file.name.day = day;
        if (parse_segment_file(name, file) &&
            ::fstatat(::dirfd(open.get()), name, &file.status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(file.status.st_mode))
            files.push_back(std::move(file));
    });
    std::sort(files.begin(), files.end(), [](const SegmentFile& a, const SegmentFile& b) {
        return std::tie(a.name, a.extension) < std::tie(b.name, b.extension);
    });
    return files;
}

std::vector<SegmentName> segments_near(const fs::path& folder, int camera, const char* extension,
                                       std::int64_t from_ms, std::int64_t to_ms) {
    const std::vector<int> days = recorded_days(folder, camera);
    const auto begins_late = [&](int day) { return nominal_ms({0, 1, day, 0}) > to_ms + widest_offset_ms; };
    const auto begins_early = [&](int day) {
        return nominal_ms({0, 1, day, 0}) < from_ms - widest_offset_ms;
    };
    const auto last = std::find_if(days.begin(), days.end(), begins_late);
    auto first = std::find_if_not(days.begin(), last, begins_early);
    for (int before = 0; before < 2 && first != days.begin(); ++before)
        --first;  // a segment of the day before the last of these may go on

    std::vector<SegmentName> names;
    for (; first != last; ++first)
        for (const SegmentFile& file : segment_files(folder, camera, *first))
            if (file.extension == extension && nominal_ms(file.name) <= to_ms + widest_offset_ms)
                names.push_back(file.name);
    // A segment is over when the next one begins.
    auto kept = names.begin();
    while (names.end() - kept > 1 && nominal_ms(*(kept + 1)) < from_ms - widest_offset_ms)
        ++kept;
    names.erase(names.begin(), kept);
    return names;
}

std::int64_t changed_ms(const struct stat& status) {
    return static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1'000'000;
}

}  // namespace plendix
