#include "record/retention.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

#include "record/folder_lock.h"
#include "record/segment_disk.h"
#include "record/segment_files.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t most_failures = 3;                  // in one call: the disk may refuse them all
constexpr std::chrono::minutes retry_period{10};          // until what could not be removed is tried again
constexpr std::chrono::seconds measure_period{5};         // between looks at the sizes of open segments
constexpr std::chrono::milliseconds smallest_step{2000};  // less is the time between end and `added`
constexpr std::chrono::milliseconds move_time{50};        // of a sweep
constexpr std::chrono::hours event_file_period{1};        // between looks at the files of events

bool look(const fs::path& file, struct stat& status) {
    return ::lstat(file.c_str(), &status) == 0;
}

std::vector<SegmentName> sorted_names(const Retention::Stems& stems) {
    std::vector<SegmentName> names;
    for (const auto& stem : stems)
        if (const auto name = parse_stem(stem)) names.push_back(*name);
    std::sort(names.begin(), names.end());
    return names;
}

bool contains(const std::vector<SegmentName>& sorted, const SegmentName& name) {
    return std::binary_search(sorted.begin(), sorted.end(), name);
}

bool has_mark(const fs::path& folder) {
    struct stat status {};
    return look(folder / folder_mark, status);
}

std::uint64_t available_bytes(const fs::path& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0) return 0;
    return static_cast<std::uint64_t>(status.f_bavail) * status.f_frsize;
}

std::vector<std::string> names_or_none(const fs::path& folder) {
    try {
        return names_in(folder);
    } catch (const Failure&) {
        return {};  // the next look may succeed
    }
}

}  // namespace

Retention::Retention(fs::path folder, RetentionLimits limits, const std::optional<ClockReading>& clocks)
    : folder_(std::move(folder)), limits_(limits), clocks_(clocks), marked_(has_mark(folder_)) {
    if (limits_.any()) scan();
}

void Retention::scan() {
    for (const int number : recorded_cameras(folder_)) {
        Camera& camera = cameras_[number];
        for (const int day : recorded_days(folder_, number)) {
            for (const SegmentFile& file : segment_files(folder_, number, day)) {
                const auto bytes = static_cast<std::uint64_t>(file.status.st_size);
                const std::int64_t end_ms = changed_ms(file.status);
                camera.bytes += bytes;
                if (camera.segments.empty() || !(camera.segments.back().name == file.name)) {
                    camera.segments.push_back({end_ms, bytes, file.name, std::nullopt});
                    continue;
                }
                Segment& segment = camera.segments.back();  // .jpg, .mkv, .motion, .png: in this order
                segment.bytes += bytes;
                if (file.extension == ".mkv") segment.end_ms = end_ms;
            }
        }
        std::sort(camera.segments.begin(), camera.segments.end());
        for (Segment& segment : camera.segments)
            if (clocks_ && segment.end_ms <= clocks_->wall_ms)
                segment.monotonic_ms = clocks_->monotonic_ms - (clocks_->wall_ms - segment.end_ms);
    }
}

void Retention::insert(const Segment& segment) {
    Camera& camera = cameras_[segment.name.camera];
    auto& segments = camera.segments;
    segments.insert(std::upper_bound(segments.begin(), segments.end(), segment), segment);
    camera.bytes += segment.bytes;
}

void Retention::added(const fs::path& stem, std::int64_t monotonic_ms) {
    const auto name = parse_stem(stem);
    if (!name) return;
    const auto [bytes, end_ms] = measure_segment(folder_ / stem);
    if (end_ms > 0) insert({end_ms, bytes, *name, monotonic_ms});
}

Removed Retention::sweep(std::int64_t now_ms, const Stems& open) {
    Removed removed;
    if (!limits_.any() || !reachable(removed)) return removed;
    retry_failed();
    move_times();
    look_at_open(open);
    if (limits_.keep.count() > 0) remove_aged(now_ms, removed);
    if (limits_.keep_bytes > 0) remove_surplus(removed);
    remove_event_files(now_ms, removed);
    return removed;
}

Removed Retention::free_space(std::uint64_t wanted, const Stems& open) {
    Removed removed;
    const std::uint64_t available = available_bytes(folder_);
    removed.enough = available >= wanted;
    if (removed.enough || !limits_.any() || !reachable(removed)) return removed;
    retry_failed();
    look_at_open(open);
    // What was removed counts as available: a file system may give it back later, and then more
    // than necessary would go.
    while (available + removed.bytes < wanted && goes_on()) {
        Camera* camera = oldest();
        if (camera == nullptr) break;
        remove_oldest(*camera, removed);
    }
    removed.enough = available + removed.bytes >= wanted || available_bytes(folder_) >= wanted;
    return removed;
}

void Retention::follow_clock(std::int64_t now_ms, std::int64_t monotonic_ms) {
    for (auto& [number, camera] : cameras_) {
        for (Segment& segment : camera.segments) {
            if (!segment.monotonic_ms) continue;
            const std::int64_t end_ms =
                std::max<std::int64_t>(now_ms - (monotonic_ms - *segment.monotonic_ms), 0);
            const milliseconds step(end_ms - segment.end_ms);
            if (step < smallest_step && step > -smallest_step) continue;
            segment.end_ms = end_ms;
            moves_.emplace_back(segment.name, step);
        }
        std::sort(camera.segments.begin(), camera.segments.end());
    }
}

void Retention::move_times() {
    const auto end = Clock::now() + move_time;
    while (!moves_.empty() && Clock::now() < end) {
        move_segment_times(folder_ / stem_path(moves_.front().first), moves_.front().second);
        moves_.pop_front();
    }
}

std::int64_t Retention::newest_ms() const {
    std::int64_t newest_ms = 0;
    for (const auto& [number, camera] : cameras_)
        if (!camera.segments.empty()) newest_ms = std::max(newest_ms, camera.segments.back().end_ms);
    return newest_ms;
}

std::size_t Retention::segments() const {
    return std::accumulate(
        cameras_.begin(), cameras_.end(), failed_.size(),
        [](std::size_t sum, const auto& camera) { return sum + camera.second.segments.size(); });
}

std::uint64_t Retention::bytes() const {
    return std::accumulate(cameras_.begin(), cameras_.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto& camera) { return sum + camera.second.bytes; });
}

void Retention::look_at_open(const Stems& stems) {
    const auto now = Clock::now();
    const bool others = stems != open_.stems;
    if (!others && now - open_.measured < measure_period) return;
    if (others) open_.names = sorted_names(stems);
    open_.stems = stems;
    open_.measured = now;
    open_.bytes.clear();
    open_.all_bytes = 0;
    if (limits_.keep_bytes == 0) return;
    for (const SegmentName& name : open_.names) {
        const std::uint64_t bytes = measure_segment(folder_ / stem_path(name)).bytes;
        open_.bytes[name.camera] += bytes;
        open_.all_bytes += bytes;
    }
}

/// The camera whose first segment ended before all others; null when there is no segment.
Retention::Camera* Retention::oldest() {
    Camera* found = nullptr;
    for (auto& [number, camera] : cameras_) {
        if (camera.segments.empty()) continue;
        if (found == nullptr || camera.segments.front() < found->segments.front()) found = &camera;
    }
    return found;
}

/// Takes the camera's first segment out of the list, whatever becomes of its files. One that is
/// open does not belong there; it comes back when it is closed.
void Retention::remove_oldest(Camera& camera, Removed& removed) {
    const Segment segment = camera.segments.front();
    camera.segments.pop_front();
    camera.bytes -= segment.bytes;
    if (contains(open_.names, segment.name)) return;
    if (const int error = remove_segment(folder_ / stem_path(segment.name)); error != 0) {
        failed_.push_back(segment);
        ++failures_;
        tell(error, folder_ / stem_path(segment.name), removed);
        return;
    }
    ++removed.segments;
    removed.bytes += segment.bytes;
    if (failed_.empty()) told_.clear();
}

void Retention::remove_aged(std::int64_t now_ms, Removed& removed) {
    const std::int64_t limit_ms = now_ms - limits_.keep.count();
    for (Camera* camera = oldest(); camera != nullptr && goes_on(); camera = oldest()) {
        if (camera->segments.front().end_ms >= limit_ms) return;
        remove_oldest(*camera, removed);
    }
}

void Retention::remove_surplus(Removed& removed) {
    if (!limits_.per_camera) {
        Camera* camera = nullptr;
        while (bytes() + open_.all_bytes > limits_.keep_bytes && goes_on() && (camera = oldest()) != nullptr)
            remove_oldest(*camera, removed);
        return;
    }
    for (auto& [number, camera] : cameras_)
        while (camera.bytes + open_.bytes[number] > limits_.keep_bytes && !camera.segments.empty() &&
               goes_on())
            remove_oldest(camera, removed);
}

/// Those of days that are older than the limit or, with a limit of size only, than all segments.
void Retention::remove_event_files(std::int64_t now_ms, Removed& removed) {
    const auto now = Clock::now();
    if (now < next_event_files_) return;
    next_event_files_ = now + event_file_period;
    const Camera* first = oldest();
    std::int64_t limit_ms = limits_.keep.count() > 0 ? now_ms - limits_.keep.count() : 0;
    if (limits_.keep_bytes > 0 && first != nullptr)
        limit_ms = std::max(limit_ms, first->segments.front().end_ms);
    for (const std::string& name : names_or_none(folder_)) {
        const fs::path file = folder_ / name;
        struct stat status {};
        if (parse_event_file(name) == 0 || !look(file, status) || !S_ISREG(status.st_mode)) continue;
        if (changed_ms(status) >= limit_ms) continue;
        if (::unlink(file.c_str()) != 0) tell(errno, file, removed);
    }
}

bool Retention::goes_on() const {
    return failures_ < most_failures;
}

/// Whether this is still the folder that was read, not for instance the empty place where a disk
/// was mounted: its segments shall not be forgotten.
bool Retention::reachable(Removed& removed) {
    failures_ = 0;
    struct stat status {};
    const fs::path there = marked_ ? folder_ / folder_mark : folder_;
    if (::stat(there.c_str(), &status) == 0) {
        told_.erase(ENOENT);
        return true;
    }
    removed.enough = false;
    tell(ENOENT, there, removed);
    return false;
}

void Retention::retry_failed() {
    if (failed_.empty() || Clock::now() < retry_) return;
    retry_ = Clock::now() + retry_period;
    for (const Segment& segment : std::exchange(failed_, {}))
        insert(segment);
}

void Retention::tell(int error, const fs::path& path, Removed& removed) {
    if (!told_.insert(error).second) return;
    removed.error = "cannot remove '" + path.string() + "' of the recording: " + error_text(error);
}

}  // namespace plendix
