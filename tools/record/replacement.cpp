#include "record/replacement.h"

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "record/segment_files.h"
#include "record/segment_repair.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

// The folder's name tells what is to be done with its contents after the process was killed. It
// changes in one step: unfinished: back with it; replaced: back, or away where there is a new
// recording; removed: away.
constexpr const char* unfinished = ".plendix-unfinished";
constexpr const char* replaced = ".plendix-replaced";
constexpr const char* removed = ".plendix-removed";

bool only_of(const std::string& text, std::size_t from, const char* characters) {
    return text.find_first_not_of(characters, from) == std::string::npos;
}

/// "camera-1.mkv", "camera-1-2.mkv", "camera-1.jpg"
bool is_whole_movie(const std::string& name) {
    const std::size_t dot = name.find('.');
    if (dot == std::string::npos) return false;
    const std::string extension = name.substr(dot);
    const std::string stem = name.substr(0, dot);
    return (extension == ".mkv" || extension == ".jpg" || extension == ".png") &&
           parse_camera_folder(stem.substr(0, stem.find('-', 7))) != 0 && only_of(stem, 7, "0123456789-");
}

bool is_ours(const std::string& name) {
    return name == "events.jsonl" || parse_event_file(name) != 0 || is_whole_movie(name) ||
           (name.compare(0, 10, "driver.log") == 0 && only_of(name, 10, "0123456789.-"));
}

void move(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw Failure("cannot move '" + from.string() + "': " + error.message());
}

void make(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Failure("cannot make '" + folder.string() + "': " + error.message());
}

void remove_if_empty(const fs::path& folder) {
    ::rmdir(folder.c_str());  // refused while there is anything in it
}

void remove_whole(const fs::path& folder) {
    std::error_code error;
    fs::remove_all(folder, error);
    if (error) throw Failure("cannot remove '" + folder.string() + "': " + error.message());
}

/// A day that has only our files goes in one step, else its files one by one.
void move_day(const fs::path& from, const fs::path& to, int camera, int day) {
    const fs::path path = day_folder(camera, day);
    const auto files = segment_files(from, camera, day);
    if (files.empty()) return;
    make(to / camera_folder(camera));
    if (files.size() == names_in(from / path).size()) return move(from / path, to / path);
    make(to / path);
    for (const SegmentFile& file : files) {
        const std::string name = stem_path(file.name).string() + file.extension;
        move(from / name, to / name);
    }
}

/// Puts a day's files back; a name that is in use by now is not taken away from its file.
void move_day_back(const fs::path& aside, const fs::path& folder, int camera, int day) {
    const fs::path path = day_folder(camera, day);
    make(folder / camera_folder(camera));
    remove_if_empty(folder / path);
    if (!fs::exists(folder / path)) return move(aside / path, folder / path);
    for (const std::string& name : names_in(aside / path))
        if (!fs::exists(folder / path / name)) move(aside / path / name, folder / path / name);
    remove_if_empty(aside / path);
}

using DayMover = void (*)(const fs::path& from, const fs::path& to, int camera, int day);

void move_recording(const fs::path& from, const fs::path& to, DayMover move_one_day) {
    make(to);
    for (const int camera : recorded_cameras(from)) {
        for (const int day : recorded_days(from, camera))
            move_one_day(from, to, camera, day);
        remove_if_empty(from / camera_folder(camera));
    }
    for (const std::string& name : names_in(from))
        if (is_ours(name)) move(from / name, to / name);
}

void move_back(const fs::path& folder) {
    const fs::path aside = folder / unfinished;
    move_recording(aside, folder, move_day_back);
    remove_if_empty(aside);
    if (fs::exists(aside))
        throw Failure("'" + aside.string() +
                      "' holds files of an earlier recording whose names are in use: move them elsewhere");
}

/// Whether there is a segment with a picture.
bool has_segment(const fs::path& folder) {
    for (const int camera : recorded_cameras(folder))
        for (const int day : recorded_days(folder, camera))
            for (const SegmentFile& file : segment_files(folder, camera, day))
                if (file.extension == ".mkv" &&
                    repair_segment(folder / stem_path(file.name)) != Repair::removed)
                    return true;
    return false;
}

}  // namespace

void settle_replacement(const fs::path& folder) {
    if (fs::exists(folder / replaced))
        move(folder / replaced, folder / (has_segment(folder) ? removed : unfinished));
    if (fs::exists(folder / unfinished)) move_back(folder);
    if (fs::exists(folder / removed)) remove_whole(folder / removed);
}

Replacement::Replacement(fs::path folder) : folder_(std::move(folder)) {
    settle_replacement(folder_);
    try {
        move_recording(folder_, folder_ / unfinished, move_day);
        move(folder_ / unfinished, folder_ / replaced);
        pending_ = true;
    } catch (...) {
        try {
            move_back(folder_);
        } catch (const Failure&) {
            // The next start tries it again; what is told is why nothing was replaced.
        }
        throw;
    }
}

Replacement::~Replacement() {
    if (!pending_) return;
    try {
        move(folder_ / replaced, folder_ / unfinished);
        move_back(folder_);
    } catch (const std::exception&) {
        // The next start tries it again.
    }
}

void Replacement::commit() {
    if (!std::exchange(pending_, false)) return;
    move(folder_ / replaced, folder_ / removed);
    remove_whole(folder_ / removed);
}

}  // namespace plendix
