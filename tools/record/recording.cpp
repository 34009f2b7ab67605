#include "record/recording.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>

#include "ffmpeg.h"
#include "host/arrival_queue.h"
#include "host/document_reader.h"
#include "host/event_log.h"
#include "host/plugin_library.h"
#include "host/process_state.h"
#include "plugin/host_records.h"
#include "record/camera_recorder.h"
#include "record/report.h"
#include "record/screen.h"
#include "record/still.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t queue_bytes = 64U << 20U;   // about a second of eight large JPEG cameras
constexpr milliseconds longest_wait{100};         // a stop signal is seen at the latest then
constexpr std::chrono::seconds longest_pause{5};  // of a live camera

using Recorders = std::map<int, CameraRecorder>;  // by camera number

const char* const event_file = "events.jsonl";

milliseconds since(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

/// Everything that the recording thread keeps while the plug-in runs.
class Session {
public:
    Session(const RecordingPlan& plan, PluginLibrary& plugin, ArrivalQueue& queue)
        : plan_(plan),
          plugin_(plugin),
          queue_(queue),
          log_(event_file),
          screen_(std::cerr, screen_options(STDERR_FILENO)) {
        for (const auto& camera : plan.cameras)
            recorder(camera.number);
        for (const auto& camera : plan.cameras) {
            CameraState& state = states_[camera.number];
            state.number = camera.number;
            state.name = camera.name;
            state.address = camera.address;
            state.since = state.watched_since = Clock::now();
        }
    }

    void run() {
        // The settings file may hold cameras of an earlier recording: they are removed before
        // the plug-in first serves them, for documents handed over now are served first.
        plugin_.configure(remove_all_document());
        plugin_.configure(configure_document(plan_.cameras));
        try {
            plugin_.open();
            record_until_end();
        } catch (...) {
            plugin_.close();
            throw;
        }
        plugin_.close();
        while (const auto arrival = queue_.pop(milliseconds(0)))
            take(*arrival);
        end_ = Clock::now();
        screen_.finish();
        for (auto& [number, recorder] : recorders_)
            recorder.close();
    }

    const Recorders& recorders() const { return recorders_; }
    Clock::time_point end() const { return end_; }
    std::vector<CameraState> states() {
        std::vector<CameraState> states;
        for (auto& [number, state] : states_)
            states.push_back(current(state));
        return states;
    }

private:
    void record_until_end() {
        const StopSignals signals;
        const auto start = Clock::now();
        auto step = plan_.steps.begin();
        while (!signals.requested()) {
            const milliseconds now = since(start);
            for (; step != plan_.steps.end() && step->at <= now; ++step)
                step->action(plugin_);
            screen_.update(states(), {}, Clock::now());
            std::fflush(stdout);  // the plug-in's log, by now
            if (plan_.duration.count() > 0 && now >= plan_.duration) break;
            if (const auto arrival = queue_.pop(longest_wait)) take(*arrival);
        }
        std::cerr << (signals.requested() ? "stopping\n" : "");
    }

    void take(const Arrival& arrival) {
        if (arrival.kind == EventKindVideo) {
            states_[arrival.camera].last_frame = Clock::now();
            if (const auto event = recorder(arrival.camera).frame(arrival)) publish(*event);
            return;
        }
        const std::string text(arrival.data.begin(), arrival.data.end());
        for (const Event& event : reader_.read(text, arrival.time_ms))
            publish(event);
    }

    void publish(const Event& event) {
        log_.write(event);
        screen_.event(event, Clock::now());
        const auto known = recorders_.find(event.camera);
        if (known != recorders_.end()) known->second.count(event);
    }

    const CameraState& current(CameraState& state) {
        const CameraTotals& totals = recorder(state.number).totals();
        const PictureFormat& format = recorder(state.number).format();
        const auto now = Clock::now();
        state.codec = format.codec;
        state.width = format.width;
        state.height = format.height;
        state.frames = totals.frames;
        state.bytes = totals.bytes;
        state.key_frames = totals.key_frames;
        state.motion_events = totals.motion_events;
        state.lost_blocks = totals.lost_blocks;
        state.timeouts = totals.timeouts;
        state.connections = totals.connections;
        if (!state.last_frame) return state;
        const bool silent = now - *state.last_frame > longest_pause;
        state.condition = silent ? CameraCondition::silent : CameraCondition::live;
        state.since = *state.last_frame;
        state.since_ms = totals.last_ms;
        return state;
    }

    CameraRecorder& recorder(int number) { return recorders_.try_emplace(number, number).first->second; }

    const RecordingPlan& plan_;
    PluginLibrary& plugin_;
    ArrivalQueue& queue_;
    EventLog log_;
    Screen screen_;
    DocumentReader reader_;
    Recorders recorders_;
    std::map<int, CameraState> states_;
    Clock::time_point end_{};
};

DecodeResult check_files(const CameraRecorder& recorder) {
    DecodeResult sum;
    for (const auto& file : recorder.files()) {
        std::cerr << "decoding " << file.string() << '\n';
        const DecodeResult result = check_file(file);
        sum.packets += result.packets;
        sum.decoded += result.decoded;
        sum.faulty += result.faulty;
        if (sum.first_fault.empty() && !result.first_fault.empty()) {
            sum.first_fault = file.string() + ", " + result.first_fault;
        }
    }
    return sum;
}

void say(int camera, std::uint64_t count, const std::string& what) {
    if (count > 0) std::cerr << "camera " << camera << ": " << count << ' ' << what << '\n';
}

/// Tells what the check found; false when the camera's recording counts as failed.
bool judge(const Row& row, bool faults_expected) {
    const RecordTotals& totals = row.totals;
    if (row.state.frames == 0) return false;
    if (!row.decode) return totals.unreadable == 0 || faults_expected;
    say(row.state.number, row.decode->faulty,
        "frames did not decode without an error, first " + row.decode->first_fault);
    const bool complete = row.decode->packets == totals.recorded;
    if (!complete) {
        std::cerr << "camera " << row.state.number << ": " << row.decode->packets << " of " << totals.recorded
                  << " recorded frames are in the files\n";
    }
    return complete && (faults_expected || (row.decode->clean() && totals.unreadable == 0));
}

/// A picture of the first file that gives one: a recording may fail to decode.
void add_still(const CameraRecorder& recorder, std::vector<fs::path>& files) {
    if (recorder.files().empty()) return;
    try {
        files.push_back(write_still(recorder.files().front()));
    } catch (const Failure& failure) {
        std::cerr << failure.what() << '\n';
    }
}

std::vector<Row> rows_of(Session& session, const ArrivalQueue& queue, bool check) {
    std::vector<Row> rows;
    for (const CameraState& state : session.states()) {
        const CameraRecorder& recorder = session.recorders().at(state.number);
        const CameraTotals& totals = recorder.totals();
        rows.push_back({state,
                        {totals.recorded, totals.unreadable, totals.unstarted, queue.refused(state.number),
                         recorder.files()},
                        std::nullopt,
                        {}});
        if (check) rows.back().decode = check_files(recorder);
    }
    return rows;
}

int conclude(const RecordingPlan& plan, Session& session, const ArrivalQueue& queue) {
    const std::vector<Row> rows = rows_of(session, queue, plan.check);
    std::vector<fs::path> files{event_file, "driver.log"};
    for (const auto& [number, recorder] : session.recorders()) {
        files.insert(files.end(), recorder.files().begin(), recorder.files().end());
        add_still(recorder, files);
    }
    print_remarks(std::cerr, rows, session.end());
    bool good = true;
    std::uint64_t decoded = 0;
    for (const Row& row : rows) {
        good = judge(row, plan.faults_expected) && good;
        decoded += row.decode ? row.decode->decoded : 0;
    }
    if (queue.refused(0) > 0) std::cerr << queue.refused(0) << " documents refused: writing was too slow\n";
    const bool clean = std::all_of(rows.begin(), rows.end(),
                                   [](const Row& row) { return row.decode && row.decode->clean(); });
    if (good && clean) std::cerr << "all " << decoded << " recorded frames decoded without an error\n";
    print_table(std::cout, rows, session.end());
    std::cout << "\nfiles:\n";
    for (const auto& file : files)
        std::cout << "  " << (plan.output / file).string() << '\n';
    std::cout << std::flush;
    return good ? exit_done : exit_failed;
}

void require_free(const RecordingPlan& plan) {
    if (plan.replace || !fs::exists(plan.output / event_file)) return;
    throw UsageError("'" + plan.output.string() +
                     "' holds a recording: name another folder with --output, or --replace it");
}

}  // namespace

int record(const RecordingPlan& plan) {
    av_log_set_level(AV_LOG_ERROR);
    require_free(plan);
    ArrivalQueue queue(queue_bytes);
    PluginLibrary plugin(plan.plugin.empty() ? default_plugin() : plan.plugin,
                         [&queue](const _EventParmsIn& event) { return queue.push(event); });
    const WorkingDirectory inside(plan.output);
    Session session(plan, plugin, queue);
    {
        const OutputToFile driver_log("driver.log");
        session.run();
    }
    return conclude(plan, session, queue);
}

}  // namespace plendix
