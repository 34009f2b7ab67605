#include "record/recording.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "ffmpeg.h"
#include "host/arrival_queue.h"
#include "host/document_reader.h"
#include "host/event_log.h"
#include "host/plugin_library.h"
#include "host/process_state.h"
#include "host/signals.h"
#include "plugin/host_records.h"
#include "record/report.h"
#include "record/still.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t queue_bytes = 64U << 20U;  // about a second of eight large JPEG cameras
constexpr milliseconds longest_wait{100};        // a stop signal is seen at the latest then
constexpr milliseconds line_period{1000};

const char* const event_file = "events.jsonl";

milliseconds since(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

/// Everything that the recording thread keeps while the plug-in runs.
class Session {
public:
    Session(const RecordingPlan& plan, PluginLibrary& plugin, ArrivalQueue& queue)
        : plan_(plan), plugin_(plugin), queue_(queue), log_(event_file) {
        for (const auto& camera : plan.cameras)
            recorder(camera.number);
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
        for (auto& [number, recorder] : recorders_)
            recorder.close();
    }

    const Recorders& recorders() const { return recorders_; }

private:
    void record_until_end() {
        const StopSignals signals;
        const auto start = Clock::now();
        milliseconds next_line = line_period;
        auto step = plan_.steps.begin();
        while (!signals.requested()) {
            const milliseconds now = since(start);
            for (; step != plan_.steps.end() && step->at <= now; ++step)
                step->action(plugin_);
            if (now >= next_line) {
                std::cerr << live_line_.next(now, recorders_) << '\n';
                std::fflush(stdout);  // the plug-in's log, by now
                next_line = (now / line_period + 1) * line_period;
            }
            if (plan_.duration.count() > 0 && now >= plan_.duration) break;
            if (const auto arrival = queue_.pop(std::min(longest_wait, next_line - now))) take(*arrival);
        }
        std::cerr << (signals.requested() ? "stopping\n" : "");
    }

    void take(const Arrival& arrival) {
        if (arrival.kind == EventKindVideo) {
            if (const auto event = recorder(arrival.camera).frame(arrival)) publish(*event);
            return;
        }
        const std::string text(arrival.data.begin(), arrival.data.end());
        for (const Event& event : reader_.read(text, arrival.time_ms))
            publish(event);
    }

    void publish(const Event& event) {
        log_.write(event);
        screen_.write(std::cerr, event);
        const auto known = recorders_.find(event.camera);
        if (known != recorders_.end()) known->second.count(event);
    }

    CameraRecorder& recorder(int number) { return recorders_.try_emplace(number, number).first->second; }

    const RecordingPlan& plan_;
    PluginLibrary& plugin_;
    ArrivalQueue& queue_;
    EventLog log_;
    ScreenLog screen_;
    DocumentReader reader_;
    Recorders recorders_;
    LiveLine live_line_;
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

/// Tells what is wrong with a camera's recording; false when it counts as failed.
bool judge(const Row& row, const ArrivalQueue& queue, bool faults_expected) {
    const CameraTotals& totals = row.camera->totals();
    const int number = row.camera->number();
    say(number, queue.refused(number), "frames refused: writing was too slow");
    say(number, totals.unstarted, "frames not recorded: no key frame before them");
    say(number, totals.unreadable, "frames not recorded: unreadable");
    if (totals.frames == 0) {
        std::cerr << "camera " << number << ": no frame arrived\n";
        return false;
    }
    if (!row.decode) return totals.unreadable == 0 || faults_expected;
    say(number, row.decode->faulty,
        "frames did not decode without an error, first " + row.decode->first_fault);
    const bool complete = row.decode->packets == totals.recorded;
    if (!complete) {
        std::cerr << "camera " << number << ": " << row.decode->packets << " of " << totals.recorded
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

int conclude(const RecordingPlan& plan, const Recorders& recorders, const ArrivalQueue& queue) {
    std::vector<Row> rows;
    std::vector<fs::path> files{event_file, "driver.log"};
    for (const auto& [number, recorder] : recorders) {
        rows.push_back({&recorder, std::nullopt});
        if (plan.check) rows.back().decode = check_files(recorder);
        files.insert(files.end(), recorder.files().begin(), recorder.files().end());
        add_still(recorder, files);
    }
    bool good = true;
    std::uint64_t decoded = 0;
    for (const Row& row : rows) {
        good = judge(row, queue, plan.faults_expected) && good;
        decoded += row.decode ? row.decode->decoded : 0;
    }
    if (queue.refused(0) > 0) std::cerr << queue.refused(0) << " documents refused: writing was too slow\n";
    const bool clean = std::all_of(rows.begin(), rows.end(),
                                   [](const Row& row) { return row.decode && row.decode->clean(); });
    if (good && clean) std::cerr << "all " << decoded << " recorded frames decoded without an error\n";
    print_table(std::cout, rows);
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
    return conclude(plan, session.recorders(), queue);
}

}  // namespace plendix
