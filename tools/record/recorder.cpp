#include "record/recorder.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <variant>

#include "host/clocks.h"
#include "record/record_options.h"
#include "record/segment_disk.h"
#include "record/segment_repair.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds longest_wait{100};
constexpr milliseconds housekeeping_period{1000};
constexpr std::chrono::seconds time_for_room{3};   // that was made: until a key frame comes and shows it
constexpr std::chrono::seconds writing_period{2};  // of a camera that delivers, at most
constexpr std::chrono::minutes loss_period{1};

/// What an earlier process left unfinished is settled first.
std::unique_ptr<Replacement> prepare(const RecordFolder& folder, bool replace,
                                     std::vector<RepairedSegment>& repaired) {
    settle_replacement(folder.root());
    repaired = repair_newest_segments(folder.root());
    return replace ? std::make_unique<Replacement>(folder.root()) : nullptr;
}

}  // namespace

RecorderRules rules_of(const RecordOptions& options) {
    RecorderRules rules;
    rules.segment = options.segment;
    rules.names = options.local_names ? TimeNames::local : TimeNames::utc;
    rules.limits = {options.keep, options.keep_size, options.keep_per_camera};
    rules.motion_hold = options.motion_hold;
    rules.replace = options.replace;
    rules.all_events = options.all_events;
    return rules;
}

Recorder::Recorder(OutputQueue& queue, const fs::path& root, const RecorderRules& rules)
    : queue_(queue),
      rules_(rules),
      folder_(root, rules.names),
      replacement_(prepare(folder_, rules.replace, repaired_)),
      upkeep_(folder_, rules.limits),
      events_(folder_.root()),
      hold_(rules.all_events ? milliseconds(0) : rules.motion_hold) {}

Recorder::~Recorder() {
    queue_.finish();
    if (thread_.joinable()) thread_.join();
}

void Recorder::start() {
    tell_of_repairs();
    running_ = true;
    thread_ = std::thread([this] { run(); });
}

bool Recorder::stop(milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!ended_.wait_for(lock, patience, [this] { return !running_; })) return false;
    lock.unlock();
    if (thread_.joinable()) thread_.join();
    return true;
}

void Recorder::run() {
    while (!queue_.finished()) {
        guarded([this] {
            const auto delivery = queue_.pop(longest_wait);
            follow_clock();  // before a frame that came after the step ends a segment
            if (delivery) take(*delivery);
            const auto now = Clock::now();
            if (now >= next_housekeeping_) keep_house(now);
        });
    }
    for (auto& [number, camera] : cameras_)
        guarded([this, &each = camera] {
            each.close();
            note_closed(each);
        });
    guarded([this] { finish(); });
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = false;
    ended_.notify_all();
}

/// Nothing ends the thread: where memory is out, for instance, it may do for the next frame.
template <class Work>
void Recorder::guarded(Work work) {
    try {
        work();
    } catch (const std::exception& error) {
        ++faults_;
        std::snprintf(fault_.data(), fault_.size(), "%s", error.what());
    }
}

void Recorder::finish() {
    for (const Event& held : hold_.flush())
        for (const Event& told : digest_.take(held, Clock::now()))
            events_.write(told);
    for (const Event& told : digest_.flush())
        events_.write(told);
    keep_house(Clock::now());
}

void Recorder::take(const Delivery& delivery) {
    if (const auto* frame = std::get_if<FramePointer>(&delivery))
        take(**frame);
    else
        take(std::get<Event>(delivery));
}

void Recorder::take(const Frame& frame) {
    CameraRecorder& camera =
        cameras_.try_emplace(frame.camera, frame.camera, folder_, rules_.segment).first->second;
    const std::uint64_t before = camera.failures();
    camera.frame(frame, Clock::now());
    note_closed(camera);
    if (camera.failures() != before && out_of_room(camera.refusal().code)) {
        const bool replaced = commit_replacement();  // it would keep the new one from its first frame
        const Removed removed = upkeep_.make_room(true, open_stems());
        tell_of(removed);
        if (removed.segments > 0 || replaced) return room_was_made();
    }
    tell(camera);
}

void Recorder::take(const Event& event) {
    const auto now = Clock::now();
    if (rules_.all_events) return events_.write(event);
    for (const Event& held : hold_.take(event, now))
        for (const Event& told : digest_.take(held, now))
            events_.write(told);
}

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
        tell_of(upkeep_.sweep(open));
        tell_of(upkeep_.make_room(false, open));
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

/// After a refusal.
void Recorder::room_was_made() {
    room_made_ = Clock::now();
    for (auto& [number, camera] : cameras_)
        camera.retry();
}

void Recorder::follow_clock() {
    const auto jump_ms = upkeep_.follow_clock();
    if (!jump_ms) return;
    const auto now = Clock::now();
    for (const auto& [number, camera] : cameras_)  // one that is being written gets its time from that
        if (const auto stem = camera.open_stem(); stem && now - camera.last_frame() > writing_period)
            move_segment_times(folder_.root() / *stem, milliseconds(*jump_ms));
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
    if (numbers.recorded > 0) commit_replacement();
    const std::lock_guard<std::mutex> lock(mutex_);
    numbers_ = numbers;
}

/// False when there is nothing to replace any more.
bool Recorder::commit_replacement() {
    if (!replacement_) return false;
    try {
        replacement_->commit();
    } catch (const Failure& failure) {
        tell(0, failure.what());  // the rest goes at the next start
    }
    replacement_.reset();
    return true;
}

RecorderNumbers Recorder::numbers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return numbers_;
}

std::vector<Event> Recorder::take_events() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(news_, {});
}

std::map<int, RecordTotals> Recorder::totals() const {
    std::map<int, RecordTotals> totals;
    for (const auto& [number, camera] : cameras_)
        totals[number] = camera.totals();
    for (const auto& [number, files] : files_)
        totals[number].files = files;
    return totals;
}

}  // namespace plendix
