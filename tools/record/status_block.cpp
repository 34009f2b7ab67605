#include "record/status_block.h"

#include <algorithm>
#include <map>

#include "host/plain_text.h"
#include "host/words.h"

namespace plendix {
namespace {

using std::chrono::seconds;

constexpr seconds same_day{20 * 3600};      // older times are told with their day
constexpr std::size_t motion_columns = 10;  // of its line, before the cameras
constexpr std::size_t mark_columns = 2;     // in front of every line of the block
constexpr std::size_t least_name = 4;       // columns; a shorter one says nothing
constexpr std::size_t least_cameras = 24;   // columns: "cameras 123 and 12 more"
constexpr std::size_t log_columns = 120;    // for one trouble in a line of many

const char* adjective(TroubleKind kind) {
    switch (kind) {
        case TroubleKind::silent:
            return "silent";
        case TroubleKind::not_reached:
            return "not reached";
        case TroubleKind::refused:
            return "refused";
        case TroubleKind::losing:
            break;
    }
    return "losing pictures";
}

seconds whole_seconds(Status::Time from, Status::Time to) {
    return std::chrono::duration_cast<seconds>(to - from);
}

/// "since 14:03:05 (2 min)"
std::string since_words(const Trouble& trouble, Status::Time now) {
    const seconds span = whole_seconds(trouble.since, now);
    return "since " + clock_words(trouble.since_ms, span > same_day) + " (" + span_words(span) + ')';
}

/// "silent since 14:03:05 (2 min)"
std::string what_words(const Trouble& trouble, Status::Time now, bool with_address) {
    const std::string text = adjective(trouble.kind);
    if (trouble.kind == TroubleKind::refused && !trouble.refusal.empty())
        return text + ": " + trouble.refusal;
    const bool unknown = trouble.kind == TroubleKind::not_reached;
    const std::string place = unknown && with_address ? " at " + trouble.address : "";
    const std::string lost = trouble.lost > 0 ? ", " + std::to_string(trouble.lost) + " lost" : "";
    return text + place + ' ' + since_words(trouble, now) + lost;
}

/// The name takes what the rest leaves of the columns.
std::string one_trouble(const Trouble& trouble, Status::Time now, std::size_t columns) {
    const std::string camera = "camera " + std::to_string(trouble.camera) + ' ';
    std::string what = what_words(trouble, now, true);
    if (camera.size() + what.size() > columns) what = what_words(trouble, now, false);
    const std::size_t taken = camera.size() + what.size() + 3;  // quotes and a space
    if (trouble.name.empty() || taken + least_name > columns) return camera + what;
    return camera + '\'' + cut(trouble.name, columns - taken) + "' " + what;
}

/// "cameras 3, 7-9 silent since 14:03:05 (2 min)": that is, the first of them.
std::string many_troubles(const std::vector<Trouble>& troubles, Status::Time now, std::size_t columns) {
    if (troubles.size() == 1) return one_trouble(troubles.front(), now, columns);
    std::set<int> cameras;
    std::uint64_t lost = 0;
    const Trouble* first = &troubles.front();
    for (const Trouble& trouble : troubles) {
        cameras.insert(trouble.camera);
        lost += trouble.lost;
        if (trouble.since < first->since) first = &trouble;
    }
    std::string what = std::string(1, ' ') + adjective(first->kind) + ' ' + since_words(*first, now);
    const std::string count = lost > 0 ? ", " + std::to_string(lost) + " lost" : "";
    if (what.size() + count.size() + least_cameras <= columns) what += count;
    if (what.size() + least_cameras > columns) what.resize(what.rfind(" ("));  // the span can be worked out
    return camera_words(cameras, columns - std::min(columns, what.size())) + what;
}

/// One line for each while they find room, the kinds with the most cameras joined first.
std::vector<std::string> trouble_lines(const Status& status, std::size_t most, std::size_t columns) {
    std::map<TroubleKind, std::vector<Trouble>> kinds;
    for (const Trouble& trouble : status.troubles)
        kinds[trouble.kind].push_back(trouble);
    std::size_t count = status.troubles.size();
    std::set<TroubleKind> joined;
    while (count > most && joined.size() < kinds.size()) {
        const auto largest =
            std::max_element(kinds.begin(), kinds.end(), [&](const auto& one, const auto& other) {
                const auto size = [&](const auto& kind) {
                    return joined.count(kind.first) > 0 ? 0 : kind.second.size();
                };
                return size(one) < size(other);
            });
        joined.insert(largest->first);
        count -= largest->second.size() - 1;
    }
    std::vector<std::string> lines;
    for (const auto& [kind, troubles] : kinds) {
        if (joined.count(kind) > 0) {
            lines.push_back(many_troubles(troubles, status.now, columns));
            continue;
        }
        for (const Trouble& trouble : troubles)
            lines.push_back(one_trouble(trouble, status.now, columns));
    }
    return lines;
}

std::string live_words(const Status& status) {
    return std::to_string(status.live) + " of " + std::to_string(status.wanted) + " cameras live";
}

std::string rate_words(const Status& status) {
    return fixed(status.rates.frames, 1) + " frames/s, " + fixed(status.rates.megabits, 1) + " Mbit/s";
}

/// How far back the recording will reach when the limits take effect.
seconds history(const RecorderNumbers& numbers, double rate) {
    const double bytes = static_cast<double>(*numbers.room_bytes + numbers.kept_bytes);
    const seconds by_size(static_cast<seconds::rep>(std::min(bytes / rate, 1e9)));
    if (numbers.keep.count() == 0) return by_size;
    return std::min(by_size, std::chrono::duration_cast<seconds>(numbers.keep));
}

/// "12.4 GB written, 402 GB free, full in 9 days 3 h", with limits "..., room for 7 days"
std::string disk_words(const Status& status) {
    const RecorderNumbers& numbers = status.numbers;
    std::string text = byte_words(numbers.written) + " written";
    if (!numbers.free_bytes) return text;
    text += ", " + byte_words(*numbers.free_bytes) + " free";
    if (status.rates.written < 1) return text;
    if (numbers.room_bytes) return text + ", room for " + span_words(history(numbers, status.rates.written));
    const double left = std::min(static_cast<double>(*numbers.free_bytes) / status.rates.written, 1e9);
    return text + ", full in " + span_words(seconds(static_cast<seconds::rep>(left)));
}

/// What the recorder itself suffers.
std::vector<std::string> recorder_troubles(const RecorderNumbers& numbers) {
    std::vector<std::string> lines;
    if (!numbers.paused.empty()) {
        const std::string cameras = std::to_string(numbers.paused_cameras);
        lines.push_back(cameras + (numbers.paused_cameras == 1 ? " camera" : " cameras") +
                        " not recorded: " + printable(numbers.paused));
    }
    if (numbers.refused_frames > 0)
        lines.push_back(std::to_string(numbers.refused_frames) + " frames lost: the disk did not take them");
    if (numbers.lost_frames > 0)
        lines.push_back(std::to_string(numbers.lost_frames) + " frames lost: the disk is too slow");
    return lines;
}

}  // namespace

std::vector<std::string> status_block(const Status& status, std::size_t columns, std::size_t most) {
    const std::string title = "--- " + live_words(status) + ", running " +
                              span_words(whole_seconds(status.began, status.now)) + ' ';
    std::vector<std::string> sums{rate_words(status), disk_words(status)};
    if (!status.moving.empty())
        sums.insert(sums.begin(),
                    "motion: " + camera_words(status.moving, columns - std::min(columns, motion_columns)));
    std::vector<std::string> wrong = recorder_troubles(status.numbers);
    const std::size_t others = 1 + wrong.size() + sums.size();
    const std::size_t room = most > others ? most - others : 1;
    const auto troubles = trouble_lines(status, room, columns - std::min(columns, mark_columns));
    wrong.insert(wrong.end(), troubles.begin(), troubles.end());

    std::vector<std::string> lines{title + std::string(columns - std::min(columns, title.size()), '-')};
    for (const auto& line : wrong)
        lines.push_back("! " + line);
    for (const auto& line : sums)
        lines.push_back("  " + line);
    if (lines.size() > most) lines.resize(std::max<std::size_t>(most, 2));
    for (auto& line : lines)
        line = cut(line, columns);
    return lines;
}

std::string status_line(const Status& status) {
    std::string text;
    for (const auto& line : recorder_troubles(status.numbers))
        text += line + "; ";
    for (const auto& line : trouble_lines(status, 3, log_columns))
        text += line + "; ";
    return text + live_words(status) + ", " + rate_words(status) + ", " + disk_words(status);
}

}  // namespace plendix
