#include "field/inspect_verdict.h"

#include <utility>

namespace plendix {
namespace {

using Outcome = Verdict::Outcome;

constexpr std::size_t header = 4;        // opcode and number
constexpr std::size_t room = 2U << 20U;  // bytes: the driver's buffer, block 0 included

bool fits(std::uint32_t block, std::size_t block_size) {
    return (std::size_t{block} + 1) * block_size < room;
}

Verdict& lose(Verdict& verdict, Loss cause, Why why, std::uint32_t block = 0, std::uint32_t last = 0) {
    verdict.outcome = Outcome::lost;
    verdict.cause = cause;
    verdict.why = why;
    verdict.block = block;
    verdict.last = last;
    return verdict;
}

/// The last block that is there without a gap from 1 on.
std::uint16_t last_in_a_row(const Flow& flow) {
    std::uint16_t last = 0;
    for (const auto& [number, block] : flow.blocks) {
        if (number == 0) continue;
        if (number != last + 1) break;
        last = number;
    }
    return last;
}

/// A number that no block of the picture has: beyond the end, or beyond the buffer while blocks in front
/// of it are missing. 0 when there is none.
std::uint16_t stray_number(const Flow& flow, std::uint32_t missing) {
    if (flow.blocks.empty()) return 0;
    const std::uint16_t greatest = flow.blocks.rbegin()->first;
    if (greatest <= missing) return 0;
    if (flow.end != nullptr && greatest > flow.end_number) return greatest;
    return fits(greatest, flow.block_size) ? std::uint16_t{0} : greatest;
}

/// Whether the block in front of the missing one fills a picture up, so that the end bears a number that
/// does not exist.
bool end_is_misnumbered(const Flow& flow, std::uint32_t missing) {
    if (flow.end_number == missing ||
        flow.blocks.lower_bound(static_cast<std::uint16_t>(missing)) != flow.blocks.end())
        return false;
    const auto before = flow.blocks.find(static_cast<std::uint16_t>(missing - 1));
    const bool filled = before != flow.blocks.end() && before->second.zeros;
    return filled || !fits(flow.end_number, flow.block_size);
}

/// Between which moments the missing block should have come.
void set_interval(Verdict& verdict, const Flow& flow, std::uint32_t missing) {
    const auto behind = flow.blocks.upper_bound(static_cast<std::uint16_t>(missing));
    const auto before = flow.blocks.find(static_cast<std::uint16_t>(missing - 1));
    verdict.before_ns = before != flow.blocks.end() ? before->second.time_ns : flow.options_ns;
    verdict.behind_ns = behind != flow.blocks.end() ? behind->second.time_ns
                        : flow.end != nullptr       ? flow.end->time_ns
                                                    : verdict.before_ns;
}

/// A block is missing although others came behind it.
Verdict& judge_gap(Verdict& verdict, const Flow& flow, std::uint32_t missing) {
    const auto last = std::uint32_t{flow.end != nullptr ? flow.end_number : flow.blocks.rbegin()->first};
    if (const std::uint16_t stray = stray_number(flow, missing); stray != 0)
        return lose(verdict, Loss::never_sent, Why::number_not_there, stray, flow.end != nullptr ? last : 0);
    if (flow.end != nullptr && end_is_misnumbered(flow, missing))
        return lose(verdict, Loss::never_sent, Why::number_not_there, last, missing);
    const auto number = static_cast<std::uint16_t>(missing);
    if (flow.blocks.count(number) != 0) return lose(verdict, Loss::ours_late, Why::not_taken, missing, last);
    if (flow.behind_end.count(number) != 0)
        return lose(verdict, Loss::lost_on_way, Why::behind_the_end, missing, last);
    set_interval(verdict, flow, missing);
    verdict.went_on = true;
    return lose(verdict, Loss::lost_on_way, Why::missing, missing, last);
}

/// All blocks in front of the end were taken.
Verdict& judge_whole(Verdict& verdict, const Flow& flow, bool picture) {
    verdict.outcome = Outcome::whole;
    if (!picture) return verdict;
    const std::uint32_t end = flow.end_number;
    if (end > 1 && !fits(end - 1, flow.block_size))
        return lose(verdict, Loss::withheld, Why::too_large, 0, end - 1);
    if (flow.end->size < header + link::trailer_size)
        return lose(verdict, Loss::never_sent, Why::cut_short, end);
    verdict.bytes = std::size_t{end - 1U} * flow.block_size;
    const auto& bytes = flow.end->bytes;
    verdict.trailer = link::parse_trailer({bytes.data() + header, bytes.size() - header});
    if (!verdict.trailer) return verdict;  // not captured whole
    verdict.words = link::trailer_complaint(*verdict.trailer);
    return verdict.words.empty() ? verdict : lose(verdict, Loss::withheld, Why::complaint);
}

Verdict& judge_end(Verdict& verdict, const Flow& flow, bool picture) {
    std::uint32_t missing = 1;
    while (missing < flow.end_number && flow.taken(static_cast<std::uint16_t>(missing)))
        ++missing;
    if (flow.end_number == 0)
        lose(verdict, Loss::never_sent, Why::number_not_there);
    else if (missing >= flow.end_number)
        judge_whole(verdict, flow, picture);
    else
        judge_gap(verdict, flow, missing);
    if (verdict.outcome == Outcome::lost && flow.end->from == Step::From::stranger)
        lose(verdict, Loss::disturbed, Why::cut_short, flow.end_number);
    return verdict;
}

/// The camera did not grant what was asked for.
bool judge_refusal(Verdict& verdict, const Flow& flow) {
    if (flow.error != nullptr) {
        lose(verdict, Loss::refused, Why::error_packet, flow.error_code);
        verdict.words = flow.error_words;
    } else if (flow.options && flow.block_size == 0) {
        lose(verdict, Loss::refused, Why::size_of_512);
    } else if (flow.data_without_options) {
        lose(verdict, Loss::refused, Why::no_options);
    } else {
        return false;
    }
    return true;
}

/// The first of the blocks up to `last` that was not acknowledged; one more than that when all were.
std::uint32_t first_not_taken(const Flow& flow, std::uint16_t last) {
    std::uint32_t number = flow.options ? 0 : 1;
    while (number <= last && flow.taken(static_cast<std::uint16_t>(number)))
        ++number;
    return number;
}

/// Nothing more came; how far it had come.
Verdict& judge_silence(Verdict& verdict, const Flow& flow, std::uint16_t last) {
    verdict.outcome = Outcome::silent;
    verdict.block = last;
    verdict.why = Why::nothing_behind;
    if (!verdict.answered) {
        verdict.why = Why::nothing_came;
    } else if (flow.end != nullptr && !flow.taken(flow.end_number)) {
        verdict.why = Why::not_taken;
        verdict.block = flow.end_number;
    } else if (const std::uint32_t number = first_not_taken(flow, last); number <= last) {
        verdict.why = Why::not_taken;
        verdict.block = number;
    } else if (last > 0 && (flow.blocks.at(last).zeros || flow.blocks.at(last).cut)) {
        verdict.why = Why::nothing_at_the_end;
    }
    return verdict;
}

/// The driver took what the capture has not.
bool unseen_end(const Flow& flow, std::uint16_t last) {
    if (!flow.options) return false;
    const bool acknowledged = !flow.acknowledged.empty() && *flow.acknowledged.rbegin() > last;
    return acknowledged || (last > 0 && flow.blocks.at(last).zeros && flow.taken(last));
}

Verdict& judge_unended(Verdict& verdict, const Flow& flow, bool next_request) {
    if (flow.closing != nullptr) {
        const bool stranger = flow.closing->from == Step::From::stranger;
        return lose(verdict, stranger ? Loss::disturbed : Loss::never_sent, Why::closed_by_size,
                    static_cast<std::uint32_t>(flow.closing->size));
    }
    if (flow.said_so) return lose(verdict, Loss::given_up, Why::said_so);
    if (judge_refusal(verdict, flow)) return verdict;
    const std::uint16_t last = last_in_a_row(flow);
    if (next_request && unseen_end(flow, last)) {
        verdict.outcome = Outcome::unseen;
        return verdict;
    }
    const std::uint32_t not_taken = first_not_taken(flow, last);
    if (!flow.acknowledged.empty() && *flow.acknowledged.rbegin() > not_taken && not_taken <= last)
        return lose(verdict, Loss::ours_late, Why::not_taken, not_taken);
    if (!flow.blocks.empty() && flow.blocks.rbegin()->first > last)
        return judge_gap(verdict, flow, last + 1U);
    if (flow.too_late_ms > 0) return lose(verdict, Loss::stalled, Why::too_late, flow.too_late_ms);
    if (next_request) return lose(verdict, Loss::given_up, Why::next_request);
    return judge_silence(verdict, flow, last);
}

}  // namespace

const char* loss_name(Loss loss) {
    constexpr const char* names[losses] = {"never sent", "lost on the way", "acknowledgement lost",
                                           "ours late",  "stalled",         "refused",
                                           "withheld",   "disturbed",       "given up"};
    return names[static_cast<std::size_t>(loss)];
}

Verdict judge(const Transfer& transfer) {
    Flow flow = follow(transfer);
    Verdict verdict;
    verdict.timing = std::move(flow.timing);
    verdict.garbage = flow.garbage;
    verdict.strangers = flow.strangers;
    verdict.since_ns = flow.since_ns;
    verdict.end_ns = flow.end_ns;
    verdict.answered = flow.answered;
    verdict.repeated = flow.repeated;
    verdict.unseen = flow.unseen();
    const bool end_taken = flow.end != nullptr && (transfer.ended || flow.taken(flow.end_number));
    if (end_taken)
        judge_end(verdict, flow, transfer.name.picture());
    else
        judge_unended(verdict, flow, transfer.ended);
    return verdict;
}

}  // namespace plendix
