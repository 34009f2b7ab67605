#include "record/conclusion.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <utility>

#include "host/diagnosis.h"
#include "host/signals.h"
#include "record/progress.h"
#include "record/recording.h"
#include "record/report.h"
#include "record/still.h"
#include "record/write_failure.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds patience{1000};  // with an address at which nobody answers
constexpr std::size_t most_questions = 8;
constexpr std::chrono::seconds time_for_stills{5};  // with hundreds of cameras not all of them get one

class Conclusion {
public:
    Conclusion(const RecordingPlan& plan, const Recorder& recorder, const StopSignals& signals)
        : plan_(plan), recorder_(recorder), signals_(signals) {}

    void add(const CameraState& state, const RecordTotals& totals) {
        rows_.push_back({state, totals, std::nullopt, {}});
    }

    int run() {
        const auto end = Clock::now();
        ask_for_missing();
        if (plan_.check) check();
        const std::vector<fs::path> stills = make_stills();
        const bool good = judge();
        if (!plan_.screen.quiet || !good) print_remarks(std::cerr, rows_, end, columns());
        if (good && checked())
            std::cerr << "all " << decoded() << " recorded frames decoded without an error\n";
        print_table(std::cout, rows_, end);
        print_files(stills);
        return good ? exit_done : exit_failed;
    }

private:
    /// A first request ended the recording, unless its time was over.
    bool impatient() const { return signals_.count() > (plan_.duration.count() > 0 ? 0 : 1); }

    /// Of the terminal, if it is one.
    std::optional<std::size_t> columns() const {
        if (!plan_.screen.terminal) return std::nullopt;
        return static_cast<std::size_t>(plan_.screen.width);
    }

    /// Why nothing came from the first few cameras that sent nothing: recordings may be too short for
    /// anything to have been said of it.
    void ask_for_missing() {
        std::vector<std::pair<Row*, std::future<std::string>>> questions;
        for (Row& row : rows_) {
            const bool missing = row.state.condition == CameraCondition::connecting;
            if (!missing || questions.size() == most_questions) continue;
            const auto ask = [&row] { return diagnose(row.state.address, patience); };
            questions.emplace_back(&row, std::async(std::launch::async, ask));
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
            std::error_code ignored;
            if (plan_.rules.limits.any() && !fs::exists(file, ignored)) continue;  // it had its time
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

    std::vector<fs::path> make_stills() const {
        std::vector<fs::path> stills;
        const auto end = Clock::now() + time_for_stills;
        std::error_code gone;  // with its disk, or by the retention
        for (const Row& row : rows_) {
            if (row.totals.files.empty() || impatient() || Clock::now() > end) continue;
            if (!fs::exists(row.totals.files.back(), gone)) continue;
            try {
                stills.push_back(write_still(row.totals.files.back()));
            } catch (const WriteFailure& failure) {
                std::cerr << "no still picture: " << failure.what() << '\n';
                break;  // nor of the others
            } catch (const Failure& failure) {
                std::cerr << "no still picture: " << failure.what() << '\n';
            }
        }
        return stills;
    }

    bool judge() const {
        return std::all_of(rows_.begin(), rows_.end(), [this](const Row& row) { return judge(row); });
    }

    /// Whether the camera's recording is as it should be.
    bool judge(const Row& row) const {
        if (row.state.condition == CameraCondition::off) return true;
        if (row.state.frames == 0 || (row.totals.recorded == 0 && row.totals.unwritten > 0)) return false;
        const bool readable = row.totals.unreadable == 0 || plan_.faults_expected;
        if (!row.decode || row.decode->ended) return readable;
        const bool complete = row.decode->packets == row.totals.recorded || plan_.rules.limits.any();
        if (!complete) {
            std::cerr << "camera " << row.state.number << ": " << row.decode->packets << " of "
                      << row.totals.recorded << " recorded frames are in the files\n";
        }
        return complete && (plan_.faults_expected || (row.decode->clean() && readable));
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

    void print_files(std::vector<fs::path> files) const {
        for (const char* name : {"events.jsonl", "driver.log"})
            files.push_back(recorder_.root() / name);
        for (const Row& row : rows_)
            files.insert(files.end(), row.totals.files.begin(), row.totals.files.end());
        const auto gone = [](const fs::path& file) {
            std::error_code ignored;
            return !fs::exists(file, ignored);
        };
        files.erase(std::remove_if(files.begin(), files.end(), gone), files.end());
        std::sort(files.begin(), files.end());
        std::cout << "\nfiles:\n";
        for (const auto& file : files)
            std::cout << "  " << shown(file) << '\n';
        std::cout << std::flush;
    }

    const RecordingPlan& plan_;
    const Recorder& recorder_;
    const StopSignals& signals_;
    std::vector<Row> rows_;
};

}  // namespace

int conclude(const RecordingPlan& plan, const std::vector<CameraState>& cameras, const Recorder& recorder,
             const OutputQueue& queue, const StopSignals& signals) {
    Conclusion conclusion(plan, recorder, signals);
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
