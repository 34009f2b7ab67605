#include "record/report.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace plendix {
namespace {

constexpr std::size_t most_cameras_in_line = 4;  // more would not fit a terminal: their sum

std::string fixed(double value, int digits) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

double megabits(std::uint64_t bytes, double seconds) {
    return seconds > 0 ? static_cast<double>(bytes) * 8e-6 / seconds : 0;
}

std::string state(const CameraTotals& totals, double rate, double rate_mbit) {
    std::string text = std::to_string(totals.frames) + " frames, " + fixed(rate, 1) + " fps, " +
                       fixed(rate_mbit, 1) + " Mbit/s, " + std::to_string(totals.lost_blocks) + " lost";
    if (totals.timeouts > 0) text += ", " + std::to_string(totals.timeouts) + " time-outs";
    return text;
}

std::string size_text(const PictureFormat& format) {
    if (!format.usable()) return "-";
    return std::to_string(format.width) + 'x' + std::to_string(format.height);
}

std::vector<std::string> cells(const Row& row) {
    const CameraTotals& totals = row.camera->totals();
    const PictureFormat& format = row.camera->format();
    // n frames span n - 1 intervals.
    const double seconds = static_cast<double>(totals.last_ms - totals.first_ms) / 1000;
    const double rate = seconds > 0 ? static_cast<double>(totals.frames - 1) / seconds : 0;
    const char* codec = format.codec == FrameCodec::jpeg ? "JPEG" : "H.264";
    return {std::to_string(row.camera->number()),
            format.usable() ? codec : "-",
            size_text(format),
            std::to_string(totals.frames),
            fixed(rate, 2),
            fixed(megabits(totals.bytes, seconds), 2),
            std::to_string(totals.key_frames),
            std::to_string(totals.motion_events),
            std::to_string(totals.lost_blocks),
            std::to_string(totals.timeouts),
            std::to_string(totals.reconnections()),
            row.decode ? std::to_string(row.decode->decoded) : "-"};
}

}  // namespace

std::string LiveLine::next(std::chrono::milliseconds elapsed, const Recorders& recorders) {
    const double seconds = static_cast<double>((elapsed - before_).count()) / 1000;
    before_ = elapsed;
    std::string line;
    CameraTotals sum;
    Before step_sum;
    for (const auto& [number, recorder] : recorders) {
        const CameraTotals& totals = recorder.totals();
        Before& before = cameras_[number];
        const Before step{totals.frames - before.frames, totals.bytes - before.bytes};
        before = {totals.frames, totals.bytes};
        line += " | camera " + std::to_string(number) + ": " +
                state(totals, static_cast<double>(step.frames) / seconds, megabits(step.bytes, seconds));
        sum.frames += totals.frames;
        sum.lost_blocks += totals.lost_blocks;
        sum.timeouts += totals.timeouts;
        step_sum.frames += step.frames;
        step_sum.bytes += step.bytes;
    }
    if (recorders.size() > most_cameras_in_line) {
        line = " | " + std::to_string(recorders.size()) + " cameras: " +
               state(sum, static_cast<double>(step_sum.frames) / seconds, megabits(step_sum.bytes, seconds));
    }
    return std::to_string((elapsed.count() + 500) / 1000) + " s" + line;
}

void print_table(std::ostream& out, const std::vector<Row>& rows) {
    const std::vector<std::string> titles{"camera",      "codec",     "size",          "frames",
                                          "fps",         "Mbit/s",    "key frames",    "motion events",
                                          "lost blocks", "time-outs", "reconnections", "decoded"};
    const auto line = [&](const std::vector<std::string>& cells_of_line) {
        for (std::size_t column = 0; column < titles.size(); ++column) {
            const int least = column == 2 ? 9 : 6;
            const int width = std::max(least, static_cast<int>(titles[column].size()));
            out << (column == 0 ? "" : "  ") << std::setw(width) << cells_of_line[column];
        }
        out << '\n';
    };
    line(titles);
    for (const Row& row : rows)
        line(cells(row));
}

}  // namespace plendix
