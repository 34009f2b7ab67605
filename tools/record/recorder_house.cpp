#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "host/clocks.h"
#include "host/descriptor.h"
#include "record/recorder.h"
#include "record/segment_disk.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds housekeeping_period{1000};
constexpr std::chrono::seconds time_for_room{3};  // that was made: until a key frame comes and shows it
constexpr std::chrono::minutes loss_period{1};
constexpr std::chrono::hours room_period{1};  // on a disk smaller than the limit it goes on for ever

}  // namespace

/// That a camera is not recorded, or is again: once each. In the words all cameras that suffer from the
/// same are alike, so that they are one line on a screen.
void Recorder::tell(const CameraRecorder& camera) {
    const Refusal& refusal = camera.refusal();
    const bool told = paused_.count(camera.number()) > 0;
    if (bool(refusal) == told || (refusal && camera.open_stem())) return;
    if (out_of_room(refusal.code) && Clock::now() - room_made_ < time_for_room) return;
    if (refusal) {
        paused_.insert(camera.number());
    } else {
        paused_.erase(camera.number());
    }
    Event event{utc_ms(), camera.number(), EventKind::storage};
    event.values["paused"] = bool(refusal);
    if (refusal) {
        event.values["reason"] = words_of(refusal);
        event.values["error"] = refusal.text;
    }
    tell(std::move(event));
}

void Recorder::tell(int camera, const std::string& text) {
    Event event{utc_ms(), camera, EventKind::storage};
    event.values["text"] = text;
    tell(std::move(event));
}

std::string Recorder::words_of(const Refusal& refusal) const {
    return refusal_words(refusal, folder_.root(), rules_.limits.any());
}

void Recorder::tell(Event event) {
    events_.write(event);
    const std::lock_guard<std::mutex> lock(mutex_);
    news_.push_back(std::move(event));
}

void Recorder::keep_house(Clock::time_point now) {
    next_housekeeping_ = now + housekeeping_period;
    const bool there = folder_.missing().empty();
    if (there) events_.check(utc_ms());
    if (!rules_.all_events) write_due(now);
    for (auto& [number, camera] : cameras_) {
        if (!camera.check(now))
            tell(number,
                 "its file was taken away while it was written: the next key frame begins another one");
        tell(camera);
        note_closed(camera);
    }
    if (there) {
        tell_of_events();
        const Retention::Stems open = open_stems();
        if (!ending_) tell_of(upkeep_.sweep(open));
        if (!ending_) tell_of_room(upkeep_.make_room(false, open));
    }
    tell_of_losses(now);
    publish(there);
}

void Recorder::write_due(Clock::time_point now) {
    for (const Event& due : hold_.due(now))
        for (const Event& told : digest_.take(due, now))
            events_.write(told);
    for (const Event& due : digest_.due(now))
        events_.write(due);
}

/// What the recorder itself did not manage: at most once a minute, with a number.
void Recorder::tell_of_losses(Clock::time_point now) {
    if (now < next_losses_) return;
    next_losses_ = now + loss_period;
    if (faults_ > 0) tell(0, std::to_string(std::exchange(faults_, 0)) + " times: " + fault_.data());
    const std::uint64_t lost = queue_.lost(0);
    if (lost > lost_events_)
        tell(0, std::to_string(lost - lost_events_) + " events lost: writing was too slow");
    lost_events_ = lost;
}

/// Where it is the whole disk, its cameras say so.
void Recorder::tell_of_events() {
    const std::string refusal = events_.refusal();
    const bool refused = !refusal.empty();
    if (refused && !events_refused_ && paused_.empty()) tell(0, refusal + ": the events wait");
    events_refused_ = refused;
}

void Recorder::note_closed(CameraRecorder& camera) {
    for (const fs::path& stem : camera.take_closed()) {
        upkeep_.closed(stem);
        auto& files = files_[camera.number()];
        if (!rules_.remember_files) files.clear();
        files.push_back(folder_.root() / (stem.string() + ".mkv"));
    }
}

Retention::Stems Recorder::open_stems() const {
    Retention::Stems stems;
    for (const auto& [number, camera] : cameras_)
        if (const auto stem = camera.open_stem()) stems.push_back(*stem);
    return stems;
}

void Recorder::tell_of_repairs() {
    std::size_t mended = 0;
    for (const RepairedSegment& segment : std::exchange(repaired_, {})) {
        if (!segment.error.empty()) tell(0, segment.error);
        if (segment.repair == Repair::cut || segment.repair == Repair::removed) ++mended;
    }
    if (mended > 0) tell(0, std::to_string(mended) + " files of a recording that was killed were made whole");
}

void Recorder::tell_of(const Removed& removed) {
    if (!removed.error.empty()) tell(0, removed.error);
}

/// Somebody else may fill the disk: that the oldest go because of that is said, with a number, but not
/// every second.
void Recorder::tell_of_room(const Removed& removed) {
    tell_of(removed);
    removed_for_room_ += removed.segments;
    const auto now = Clock::now();
    if (removed_for_room_ == 0 || now < next_room_) return;
    next_room_ = now + room_period;
    tell(0, "the disk is nearly full: the oldest recordings had to go before their time, " +
                std::to_string(std::exchange(removed_for_room_, 0)) + " files");
}

/// After a refusal.
void Recorder::room_was_made() {
    room_made_ = Clock::now();
    for (auto& [number, camera] : cameras_)
        camera.retry();
}

void Recorder::follow_clock() {
    const auto jump_ms = upkeep_.follow_clock();
    if (!jump_ms) return;
    for (const fs::path& stem : open_stems())  // their cameras may have stopped sending
        move_segment_times(folder_.root() / stem, milliseconds(*jump_ms));
    events_.follow_clock(utc_ms());
}

void Recorder::publish(bool there) {
    RecorderNumbers numbers;
    numbers.there = there;
    for (const auto& [number, camera] : cameras_) {
        const RecordTotals& totals = camera.totals();
        numbers.written += totals.bytes + camera.open_bytes();
        numbers.recorded += totals.recorded;
        numbers.refused_frames += totals.unwritten;
        if (!camera.refusal() || paused_.count(number) == 0) continue;
        numbers.paused = words_of(camera.refusal());
        ++numbers.paused_cameras;
    }
    numbers.lost_frames = queue_.lost();
    numbers.free_bytes = folder_.free_bytes();
    numbers.room_bytes = upkeep_.room();
    numbers.kept_bytes = upkeep_.kept_bytes();
    numbers.keep = rules_.limits.keep;
    if (numbers.recorded > 0) commit_replacement();
    const std::lock_guard<std::mutex> lock(mutex_);
    numbers_ = numbers;
}

/// False when there is nothing to replace any more.
bool Recorder::commit_replacement() {
    if (!replacement_) return false;
    try {
        // A power cut must not leave neither of them.
        const Descriptor disk(::open(folder_.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (disk) ::syncfs(disk.get());
        replacement_->commit();
    } catch (const Failure& failure) {
        tell(0, failure.what());  // the rest goes at the next start
    }
    replacement_.reset();
    return true;
}

void Recorder::finish() {
    for (const Event& held : hold_.flush())
        for (const Event& told : digest_.take(held, Clock::now()))
            events_.write(told);
    for (const Event& told : digest_.flush())
        events_.write(told);
    ending_ = true;
    keep_house(Clock::now());
}

}  // namespace plendix
