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
constexpr std::chrono::minutes time_of_doubt{10};
constexpr std::chrono::seconds time_for_room{3};  // that was made: until a key frame comes and shows it
constexpr std::size_t most_recent = 1U << 16U;    // segments: a day of 255 cameras at least

/// What an earlier process left unfinished is settled first.
std::unique_ptr<Replacement> prepare(const RecordFolder& folder, bool replace) {
    settle_replacement(folder.root());
    repair_newest_segments(folder.root());
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
      replacement_(prepare(folder_, rules.replace)),
      retention_(folder_.root(), rules.limits),
      events_(folder_.root()),
      hold_(rules.all_events ? milliseconds(0) : rules.motion_hold) {}

Recorder::~Recorder() {
    queue_.finish();
    if (thread_.joinable()) thread_.join();
}

void Recorder::start() {
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
        try {
            const auto delivery = queue_.pop(longest_wait);
            follow_clock();  // before a frame that came after the step ends a segment
            if (delivery) take(*delivery);
            const auto now = Clock::now();
            if (now >= next_housekeeping_) keep_house(now);
        } catch (const std::exception& error) {  // out of memory, for instance: the next one may do
            tell(0, error.what());
        }
    }
    for (const Event& event : hold_.flush())
        events_.write(event);
    for (auto& [number, camera] : cameras_) {
        camera.close();
        note_closed(camera);
    }
    keep_house(Clock::now());
    const std::lock_guard<std::mutex> lock(mutex_);
    running_ = false;
    ended_.notify_all();
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
        if (make_room(true, open_stems()) || replaced) return room_was_made();
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
    const std::int64_t now_ms = utc_ms();
    const bool there = folder_.missing().empty();
    if (there) events_.check(now_ms);
    for (const Event& due : rules_.all_events ? std::vector<Event>{} : hold_.due(now))
        for (const Event& told : digest_.take(due, now))
            events_.write(told);
    for (const Event& due : rules_.all_events ? std::vector<Event>{} : digest_.due(now))
        events_.write(due);
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
        tell_of(retention_.sweep(now_ms - (now < doubted_until_ ? doubt_ms_ : 0), open));
        make_room(false, open);
    }
    publish(there);
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
        retention_.added(stem);
        if (const auto name = parse_stem(stem)) recent_.push_back(*name);
        auto& files = files_[camera.number()];
        if (!rules_.remember_files) files.clear();
        files.push_back(folder_.root() / (stem.string() + ".mkv"));
    }
    if (recent_.size() > most_recent) recent_.erase(recent_.begin(), recent_.begin() + most_recent / 2);
}

Retention::Stems Recorder::open_stems() const {
    Retention::Stems stems;
    for (const auto& [number, camera] : cameras_)
        if (const auto stem = camera.open_stem()) stems.push_back(*stem);
    return stems;
}

void Recorder::tell_of(const Removed& removed) {
    if (!removed.error.empty()) tell(0, removed.error);
}

/// False when nothing was removed.
bool Recorder::make_room(bool refused, const Retention::Stems& open) {
    if (!rules_.limits.any()) return false;
    const std::uint64_t reserve = folder_.reserve_bytes();
    if (!refused && folder_.free_bytes().value_or(reserve) >= reserve) return false;
    const Removed removed = retention_.free_space(reserve, open);
    tell_of(removed);
    return removed.segments > 0;
}

/// After a refusal.
void Recorder::room_was_made() {
    room_made_ = Clock::now();
    for (auto& [number, camera] : cameras_)
        camera.retry();
}

/// The age of what was recorded by the wrong clock is told by the right one from now on. Looked at before
/// anything is closed or removed: the event that tells of it comes too late for that. One that was set
/// forward has to stay so for a while before anything is old because of that.
void Recorder::follow_clock() {
    const auto now = Clock::now();
    const auto jump_ms = clock_.look(utc_ms(), milliseconds_of(now));
    if (!jump_ms) return;
    Retention::Stems stems;
    for (const SegmentName& name : recent_)
        stems.push_back(stem_path(name));
    retention_.shift(milliseconds(*jump_ms), stems);
    for (const fs::path& stem : open_stems())  // their cameras may have stopped sending
        move_segment_times(folder_.root() / stem, milliseconds(*jump_ms));
    events_.follow_clock(utc_ms());
    doubt_ms_ = std::max<std::int64_t>((now < doubted_until_ ? doubt_ms_ : 0) + *jump_ms, 0);
    doubted_until_ = now + time_of_doubt;
}

std::optional<std::uint64_t> Recorder::room() const {
    if (!rules_.limits.any()) return std::nullopt;
    const std::uint64_t free = folder_.free_bytes().value_or(0);
    const std::uint64_t reserve = std::min(free, folder_.reserve_bytes());
    const std::uint64_t kept = retention_.bytes();
    if (rules_.limits.keep_bytes == 0 || rules_.limits.per_camera) return free - reserve;
    return std::min(free - reserve, rules_.limits.keep_bytes - std::min(kept, rules_.limits.keep_bytes));
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
    numbers.room_bytes = room();
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
