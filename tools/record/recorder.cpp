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
      upkeep_(folder_, rules.limits, began_),
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
        tell_of_room(removed);
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
