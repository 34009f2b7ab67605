// The recording as an output of the host: takes frames and events from its queue and keeps them.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/clock_watch.h"
#include "host/clocks.h"
#include "host/event_digest.h"
#include "host/motion_hold.h"
#include "host/output_queue.h"
#include "record/camera_recorder.h"
#include "record/event_file.h"
#include "record/record_folder.h"
#include "record/replacement.h"
#include "record/segment_repair.h"
#include "record/upkeep.h"

namespace plendix {

struct RecordOptions;

struct RecorderRules {
    std::chrono::milliseconds segment{0};  // 0: one segment as long as the recording goes on
    TimeNames names = TimeNames::utc;
    RetentionLimits limits;
    std::chrono::milliseconds motion_hold{5000};
    bool replace = false;         // an earlier recording in the folder
    bool all_events = false;      // as they come, without hold and digest
    bool remember_files = false;  // all segments of this recording, for a check at its end
};

RecorderRules rules_of(const RecordOptions& options);

class Recorder {
public:
    /// Takes the folder. Throws Failure: it cannot be used, or another recorder writes there.
    Recorder(OutputQueue& queue, const std::filesystem::path& root, const RecorderRules& rules);
    /// Stops.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// The recorder's thread runs from here to `stop`.
    void start();
    /// After the queue is finished: waits until everything in it is kept, at most `patience`; false
    /// when the disk did not answer until then.
    bool stop(std::chrono::milliseconds patience);

    RecorderNumbers numbers() const;
    /// What there is to tell since the last call: the disk refuses, or takes frames again.
    std::vector<Event> take_events();

    /// By camera number. After `stop`.
    std::map<int, RecordTotals> totals() const;
    const std::filesystem::path& root() const { return folder_.root(); }

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void take(const Delivery& delivery);
    void take(const Frame& frame);
    void take(const Event& event);
    template <class Work>
    void guarded(Work work);
    void finish();
    void keep_house(Clock::time_point now);
    void write_due(Clock::time_point now);
    void tell_of_room(const Removed& removed);
    void tell_of_losses(Clock::time_point now);
    void tell_of_repairs();
    void note_closed(CameraRecorder& camera);
    void tell_of(const Removed& removed);
    Retention::Stems open_stems() const;
    void follow_clock();
    bool commit_replacement();
    void room_was_made();
    void tell(const CameraRecorder& camera);
    void tell(int camera, const std::string& text);
    void tell(Event event);
    void tell_of_events();
    std::string words_of(const Refusal& refusal) const;
    void publish(bool there);

    OutputQueue& queue_;
    const RecorderRules rules_;
    const std::optional<ClockReading> began_ = read_clocks();
    RecordFolder folder_;
    std::vector<RepairedSegment> repaired_;     // until it is told
    std::unique_ptr<Replacement> replacement_;  // until the first frame is recorded
    Upkeep upkeep_;
    EventFile events_;
    MotionHold hold_;
    EventDigest digest_;
    std::map<int, CameraRecorder> cameras_;
    std::map<int, std::vector<std::filesystem::path>> files_;  // by camera
    bool events_refused_ = false;
    std::set<int> paused_;  // cameras, as far as it was told
    Clock::time_point next_housekeeping_{};
    Clock::time_point room_made_{};  // after a refusal, by the retention
    std::uint64_t faults_ = 0;       // of this thread, since they were told
    std::array<char, 128> fault_{};  // the last one's words
    bool ending_ = false;
    std::size_t removed_for_room_ = 0;  // segments, since they were told
    Clock::time_point next_room_{};
    std::uint64_t lost_events_ = 0;  // as told
    Clock::time_point next_losses_{};
    std::thread thread_;

    mutable std::mutex mutex_;
    std::condition_variable ended_;
    // Guarded by mutex_:
    bool running_ = false;
    RecorderNumbers numbers_;
    std::vector<Event> news_;
};

}  // namespace plendix
