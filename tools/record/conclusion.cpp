#include "record/conclusion.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <utility>

#include "host/diagnosis.h"
#include "host/signals.h"
#include "host/write_failure.h"
#include "record/progress.h"
#include "record/recording.h"
#include "record/report.h"
#include "record/still.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds patience{1000};  // with an address at which nobody answers
constexpr std::size_t most_questions = 8;

/// With its disk, or by the retention.
bool is_gone(const fs::path& file) {
    std::error_code ignored;
    return !fs::exists(file, ignored);
}

class Conclusion {
public:
    Conclusion(const RecordingPlan& plan, const Recorder& recorder, StopSignals& signals,
               const Ending& ending)
        : plan_(plan), recorder_(recorder), signals_(signals), ending_(ending) {}

    void add(const CameraState& state, const RecordTotals& totals) {
        rows_.push_back({state, totals, std::nullopt, {}});
    }

    int run() {
        const auto end = Clock::now();
        if (!is_service()) {
            ask_for_missing();
            make_stills();
        }
        if (plan_.check) check();
        const bool good = judge();
        signals_.release();  // a table that nobody reads must not keep the process
        if (!plan_.screen.quiet || !good) print_remarks(std::cerr, rows_, end, columns());
        if (good && checked())
            std::cerr << "all " << decoded() << " recorded frames decoded without an error\n";
        print_table(std::cout, rows_, end);
        print_files();
        return good ? exit_done : exit_failed;
    }

private:
    /// It has nobody who looks, and a manager who waits for its end.
    bool is_service() const { return static_cast<bool>(plan_.reload); }
    /// Somebody asked again.
    bool impatient() const { return signals_.count() > ending_.signals; }
    milliseconds time_left() const {
        return std::chrono::duration_cast<milliseconds>(ending_.deadline - Clock::now());
    }

    /// Of the terminal, if it is one.
    std::optional<std::size_t> columns() const {
        if (!plan_.screen.terminal) return std::nullopt;
        return static_cast<std::size_t>(plan_.screen.width);
    }

    /// Why nothing came from the first few cameras that sent nothing: recordings may be too short for
    /// anything to have been said of it.
    void ask_for_missing() {
        const milliseconds wait = std::min(patience, time_left());
        if (wait.count() <= 0) return;
        std::vector<std::pair<Row*, std::future<std::string>>> questions;
        for (Row& row : rows_) {
            const bool missing = row.state.condition == CameraCondition::connecting;
            if (!missing || questions.size() == most_questions) continue;
            questions.emplace_back(&row, diagnose_aside(row.state.address, wait));
        }
        for (auto& [row, answer] : questions)
            row->diagnosis = answer.get();
    }

    void check() {
        std::size_t files = 0;
        for (const Row& row : rows_)
            files += row.totals.files.size();
        Progress progress(std::cerr, plan_.screen, files, [this] { return impatient(); });
        for (Row& row : rows_)
            row.decode = check(row.totals.files, progress);
    }

    DecodeResult check(const std::vector<fs::path>& files, Progress& progress) const {
        DecodeResult sum;
        for (const auto& file : files) {
            if (plan_.rules.limits.any() && is_gone(file)) continue;  // it had its time
            progress.begin(shown(file));
            const DecodeResult result = check(file, progress);
            sum.packets += result.packets;
            sum.decoded += result.decoded;
            sum.faulty += result.faulty;
            if (sum.first_fault.empty() && !result.first_fault.empty())
                sum.first_fault = shown(file) + ", " + result.first_fault;
            sum.ended = sum.ended || result.ended;
            if (sum.ended) break;
        }
        return sum;
    }

    static DecodeResult check(const fs::path& file, Progress& progress) {
        DecodeResult result;
        try {
            return check_file(file, [&](double part) { return progress.part(part, Clock::now()); });
        } catch (const Failure& failure) {  // gone with its disk, for instance
            result.faulty = 1;
            result.first_fault = failure.what();
        }
        return result;
    }

    /// With hundreds of cameras not all of them get one.
    void make_stills() {
        for (const Row& row : rows_) {
            if (row.totals.files.empty() || impatient() || time_left().count() <= 0) continue;
            if (is_gone(row.totals.files.back())) continue;
            try {
                stills_.push_back(write_still(row.totals.files.back()));
            } catch (const WriteFailure& failure) {
                std::cerr << "no still picture: " << failure.what() << '\n';
                break;  // nor of the others
            } catch (const Failure& failure) {
                std::cerr << "no still picture: " << failure.what() << '\n';
            }
        }
    }

    bool judge() const {
        return std::all_of(rows_.begin(), rows_.end(), [this](const Row& row) { return judge(row); });
    }

    /// Whether the camera's recording is as it should be.
    bool judge(const Row& row) const {
        if (row.state.condition == CameraCondition::off) return true;
        const RecordTotals& totals = row.totals;
        if (row.state.frames == 0 || (totals.recorded == 0 && totals.unwritten > 0)) return false;
        const bool whole = totals.unreadable + totals.unwritten + totals.lost == 0 || plan_.faults_expected;
        if (!row.decode || row.decode->ended) return whole;
        const bool removed = std::any_of(totals.files.begin(), totals.files.end(), is_gone);
        const bool complete = row.decode->packets == totals.recorded || removed;
        if (!complete) {
            std::cerr << "camera " << row.state.number << ": " << row.decode->packets << " of "
                      << totals.recorded << " recorded frames are in the files\n";
        }
        return complete && (plan_.faults_expected || (row.decode->clean() && whole));
    }

    bool checked() const {
        return std::all_of(rows_.begin(), rows_.end(),
                           [](const Row& row) { return row.decode && row.decode->clean(); });
    }

    std::uint64_t decoded() const {
        std::uint64_t sum = 0;
        for (const Row& row : rows_)
            sum += row.decode ? row.decode->decoded : 0;
        return sum;
    }

    /// As the user called the folder.
    std::string shown(const fs::path& file) const {
        return (plan_.output / file.lexically_relative(recorder_.root())).string();
    }

    void print_files() const {
        std::vector<fs::path> files = stills_;
        files.push_back(recorder_.root() / "events.jsonl");
        if (plan_.state.empty()) files.push_back(recorder_.root() / "driver.log");
        for (const Row& row : rows_)
            files.insert(files.end(), row.totals.files.begin(), row.totals.files.end());
        files.erase(std::remove_if(files.begin(), files.end(), is_gone), files.end());
        std::sort(files.begin(), files.end());
        std::cout << "\nfiles:\n";
        for (const auto& file : files)
            std::cout << "  " << shown(file) << '\n';
        std::cout << std::flush;
    }

    const RecordingPlan& plan_;
    const Recorder& recorder_;
    StopSignals& signals_;
    const Ending ending_;
    std::vector<Row> rows_;
    std::vector<fs::path> stills_;
};

}  // namespace

int conclude(const RecordingPlan& plan, const std::vector<CameraState>& cameras, const Recorder& recorder,
             const OutputQueue& queue, StopSignals& signals, const Ending& ending) {
    Conclusion conclusion(plan, recorder, signals, ending);
    auto recorded = recorder.totals();
    for (const CameraState& camera : cameras) {
        RecordTotals& totals = recorded[camera.number];
        totals.lost = queue.lost(camera.number);
        conclusion.add(camera, totals);
    }
    const int result = conclusion.run();
    const bool asked = signals.requested();
    return plan.reload && asked ? exit_done : result;  // a service that was told to stop has not failed
}

}  // namespace plendix
