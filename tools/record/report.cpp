#include "record/report.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

#include "host/diagnosis.h"
#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

using Time = CameraState::Time;

std::string size_text(const CameraState& state) {
    if (state.width <= 0 || state.height <= 0) return "-";
    return std::to_string(state.width) + 'x' + std::to_string(state.height);
}

const char* codec_text(const CameraState& state) {
    if (state.frames == 0) return "-";
    return state.codec == FrameCodec::jpeg ? "JPEG" : "H.264";
}

double per_second(std::uint64_t sum, const CameraState& state, Time end) {
    const double seconds = std::chrono::duration<double>(end - state.watched_since).count();
    return seconds > 0 ? static_cast<double>(sum) / seconds : 0;
}

std::vector<std::string> cells(const Row& row, Time end) {
    const CameraState& state = row.state;
    return {std::to_string(state.number),
            codec_text(state),
            size_text(state),
            std::to_string(state.frames),
            fixed(per_second(state.frames, state, end), 2),
            fixed(per_second(state.bytes, state, end) * 8e-6, 2),
            std::to_string(state.key_frames),
            std::to_string(state.motion_events),
            std::to_string(state.lost_blocks),
            std::to_string(state.timeouts),
            std::to_string(state.reconnections()),
            row.decode ? std::to_string(row.decode->decoded) + (row.decode->ended ? "+" : "") : "-"};
}

/// "sends no more pictures" is not enough at the end: for how long?
std::string silence(const CameraState& state, Time end) {
    if (state.condition != CameraCondition::silent || !state.last_frame) return {};
    const auto span = std::chrono::duration_cast<std::chrono::seconds>(end - *state.last_frame);
    return " (its last one came " + span_words(span) + " before the end)";
}

void remark(std::ostream& out, int camera, std::uint64_t count, const char* what) {
    if (count > 0) out << "camera " << camera << ": " << count << ' ' << what << '\n';
}

}  // namespace

void print_table(std::ostream& out, const std::vector<Row>& rows, Time end) {
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
        line(cells(row, end));
}

void print_remarks(std::ostream& out, const std::vector<Row>& rows, Time end,
                   std::optional<std::size_t> columns) {
    for (const Row& row : rows) {
        const int number = row.state.number;
        remark(out, number, row.totals.lost, "frames lost: writing was too slow");
        remark(out, number, row.totals.unwritten, "frames not recorded: the disk did not take them");
        remark(out, number, row.totals.unstarted, "frames not recorded: no key frame before them");
        remark(out, number, row.totals.unreadable, "frames not recorded: unreadable");
    }
    for (const Row& row : rows) {
        const std::string trouble = trouble_line(row.state, row.diagnosis);
        if (trouble.empty()) continue;
        const std::string line = trouble + silence(row.state, end);
        for (const std::string& part : wrapped(line, columns.value_or(line.size()), 4))
            out << part << '\n';
    }
}

}  // namespace plendix
