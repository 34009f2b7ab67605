#include "record/recorder.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <variant>

#include "host/clocks.h"
#include "record/record_options.h"
#include "record/segment_disk.h"
#include "record/segment_repair.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds longest_wait{100};
constexpr milliseconds housekeeping_period{1000};
constexpr std::uint64_t most_reserve_bytes = 256U << 20U;  // several seconds of 255 cameras
constexpr std::chrono::minutes time_of_doubt{10};
constexpr std::chrono::seconds writing_period{2};  // of a camera that delivers, at most
constexpr std::size_t most_recent = 1U << 16U;     // segments: a day of 255 cameras at least

std::uint64_t reserve_of(const RecordFolder& folder) {
    return std::min(most_reserve_bytes, folder.disk_bytes().value_or(0) / 20);
}

bool out_of_room(int error) {
    return error == ENOSPC || error == EDQUOT;
}

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
            if (const auto delivery = queue_.pop(longest_wait)) take(*delivery);
            const auto now = Clock::now();
            if (now >= next_housekeeping_) keep_house(now);
        } catch (const std::exception& error) {  // out of memory, for instance: the next one may do
            tell_of({0, 0, error.what(), false});
        }
    }
    for (const Event& event : hold_.flush())
        events_.write(event, utc_ms());
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
    const std::string before = camera.refusal();
    camera.frame(frame, Clock::now());
    if (camera.refusal() != before) tell(camera, before);
}

void Recorder::take(const Event& event) {
    const auto now = Clock::now();
    if (event.kind == EventKind::clock) follow_clock(event, now);
    if (rules_.all_events) return events_.write(event, utc_ms());
    for (const Event& held : hold_.take(event, now))
        for (const Event& told : digest_.take(held, now))
            events_.write(told, utc_ms());
}

/// The first camera that is refused says so for all; the last one that is not any more, too.
void Recorder::tell(const CameraRecorder& camera, const std::string& before) {
    const bool refused = !camera.refusal().empty();
    if (refused && out_of_room(camera.refusal_code())) make_room(true, open_stems());
    if (refused && !before.empty()) return;  // another reason, still refused
    Event event{utc_ms(), camera.number(), EventKind::storage};
    event.values["paused"] = refused;
    if (refused) event.values["reason"] = camera.refusal();
    tell(std::move(event));
}

void Recorder::tell(Event event) {
    events_.write(event, event.time_ms);
    const std::lock_guard<std::mutex> lock(mutex_);
    news_.push_back(std::move(event));
}

void Recorder::keep_house(Clock::time_point now) {
    next_housekeeping_ = now + housekeeping_period;
    const std::int64_t now_ms = utc_ms();
    for (const Event& due : rules_.all_events ? std::vector<Event>{} : hold_.due(now))
        for (const Event& told : digest_.take(due, now))
            events_.write(told, now_ms);
    for (const Event& due : rules_.all_events ? std::vector<Event>{} : digest_.due(now))
        events_.write(due, now_ms);
    for (auto& [number, camera] : cameras_) {
        const std::string before = camera.refusal();
        camera.check(now);
        if (camera.refusal() != before) tell(camera, before);
        note_closed(camera);
    }
    in_place_ = folder_.missing().empty();
    if (in_place_) {
        events_.check(now_ms);
        const Retention::Stems open = open_stems();
        tell_of(retention_.sweep(now_ms - (now < doubted_until_ ? doubt_ms_ : 0), open));
        make_room(false, open);
    }
    publish();
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
    if (removed.error.empty()) return;
    Event event{utc_ms(), 0, EventKind::storage};
    event.values["text"] = removed.error;
    tell(std::move(event));
}

void Recorder::make_room(bool refused, const Retention::Stems& open) {
    if (!rules_.limits.any()) return;
    const std::uint64_t reserve = reserve_of(folder_);
    if (!refused && folder_.free_bytes().value_or(reserve) >= reserve) return;
    const Removed removed = retention_.free_space(reserve, open);
    tell_of(removed);
    if (!refused || removed.segments == 0) return;
    for (auto& [number, camera] : cameras_)
        camera.retry();
}

/// The age of what was recorded by the wrong clock is told by the right one from now on.
/// One that was set forward has to stay so for a while before anything is old because of that.
void Recorder::follow_clock(const Event& event, Clock::time_point now) {
    const std::int64_t jump_ms = event.values.value("set_by_ms", std::int64_t{0});
    Retention::Stems stems;
    for (const SegmentName& name : recent_)
        stems.push_back(stem_path(name));
    retention_.shift(milliseconds(jump_ms), stems);
    for (const auto& [number, camera] : cameras_)  // one that is being written gets its time from that
        if (const auto stem = camera.open_stem(); stem && now - camera.last_frame() > writing_period)
            move_segment_times(folder_.root() / *stem, milliseconds(jump_ms));
    doubt_ms_ = now < doubted_until_ ? std::max<std::int64_t>(doubt_ms_ + jump_ms, 0)
                                     : std::max<std::int64_t>(jump_ms, 0);
    doubted_until_ = now + time_of_doubt;
}

std::optional<std::uint64_t> Recorder::room() const {
    if (!rules_.limits.any()) return std::nullopt;
    const std::uint64_t free = folder_.free_bytes().value_or(0);
    const std::uint64_t reserve = std::min(free, reserve_of(folder_));
    const std::uint64_t kept = retention_.bytes();
    if (rules_.limits.keep_bytes == 0 || rules_.limits.per_camera) return free - reserve;
    return std::min(free - reserve, rules_.limits.keep_bytes - std::min(kept, rules_.limits.keep_bytes));
}

void Recorder::publish() {
    RecorderNumbers numbers;
    for (const auto& [number, camera] : cameras_) {
        const RecordTotals& totals = camera.totals();
        numbers.written += totals.bytes + camera.open_bytes();
        numbers.recorded += totals.recorded;
        numbers.lost_frames += totals.unwritten;
        if (camera.refusal().empty()) continue;
        numbers.paused = camera.refusal();
        ++numbers.paused_cameras;
    }
    numbers.lost_frames += queue_.lost();
    numbers.in_place = in_place_;
    numbers.free_bytes = folder_.free_bytes();
    numbers.room_bytes = room();
    if (replacement_ && numbers.recorded > 0) {
        replacement_->commit();
        replacement_.reset();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    numbers_ = numbers;
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
