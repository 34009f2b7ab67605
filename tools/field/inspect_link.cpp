#include "field/inspect_link.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace plendix {
namespace {

using Outcome = Verdict::Outcome;
using Kind = Incident::Kind;

constexpr std::size_t most_connections = 256, most_open = 256;
constexpr int io_register = 25, setup_register = 79;  // written again and again, or with each connection
constexpr int model_register = 122;                   // read first

bool writes_settings(const link::FileName& name) {
    return name.kind == link::Kind::register_write && name.number != io_register &&
           name.number != setup_register;
}

/// The driver asks for a key frame as soon as it has missed a picture, and no other client says so.
bool is_confirmed_by_key(const Transfer& transfer, const Verdict& verdict) {
    const bool absent = verdict.why == Why::missing || verdict.why == Why::not_taken;
    return absent && transfer.ended && transfer.name.kind == link::Kind::h264 && transfer.name.ssn >= 0;
}

}  // namespace

std::uint64_t LinkCounts::all_lost() const {
    return std::accumulate(lost.begin(), lost.end(), std::uint64_t{0});
}

Incident Link::incident(std::int64_t time_ns, Kind kind) const {
    Incident incident;
    incident.time_ns = time_ns;
    incident.camera = camera_;
    incident.client = client_;
    incident.kind = kind;
    return incident;
}

void Link::add(const Transfer& transfer, const Verdict& verdict, const IdLedger& ids) {
    count(transfer, verdict);
    note_connection(transfer, verdict);
    note_oddities(transfer, verdict);
    if (transfer.name.picture()) release_held(transfer);
    if (verdict.went_on) goes_on_ = true;
    const bool picture = transfer.name.picture();
    switch (verdict.outcome) {
        case Outcome::whole:
            return take_whole(transfer, verdict);
        case Outcome::lost:
            return take_lost(transfer, verdict, ids);
        case Outcome::unseen:
            if (picture) ++counts_.unknown;
            return;
        case Outcome::silent:
            if (open_.size() >= most_open) {
                if (open_.front().picture) ++counts_.unknown;
                open_.pop_front();
            }
            open_.push_back({transfer.begin_ns(), verdict.since_ns, transfer.client.port, picture,
                             verdict.repeated, verdict.why, verdict.block});
    }
}

void Link::add_astray(const Transfer& transfer) {
    ++counts_.requests;
    if (!transfer.name.picture()) return;
    ++counts_.pictures;
    Incident lost = incident(transfer.begin_ns(), Kind::lost_picture);
    lost.cause = Loss::disturbed;
    lost.why = Why::led_astray;
    lost.last = transfer.camera;
    lose(std::move(lost), true);
}

void Link::count(const Transfer& transfer, const Verdict& verdict) {
    ++counts_.requests;
    if (transfer.name.kind == link::Kind::register_read) ++counts_.reads;
    if (transfer.name.kind == link::Kind::register_write) ++counts_.writes;
    if (transfer.name.picture()) ++counts_.pictures;
    counts_.answers.add(verdict.timing.answer);
    for (const std::int64_t delay : verdict.timing.blocks)
        counts_.blocks.add(delay);
}

void Link::note_connection(const Transfer& transfer, const Verdict& verdict) {
    const link::FileName& name = transfer.name;
    auto found = std::find_if(connections_.begin(), connections_.end(), [&](const Connection& connection) {
        return connection.port == transfer.client.port;
    });
    if (found == connections_.end()) {
        const auto later = [](std::int64_t begin_ns, const Connection& other) {
            return begin_ns < other.begin_ns;
        };
        if (connections_.size() >= most_connections) forget_connection();
        found = connections_.insert(
            std::upper_bound(connections_.begin(), connections_.end(), transfer.begin_ns(), later),
            {transfer.client.port, transfer.begin_ns(), verdict.end_ns, verdict.timing.answer,
             name.number == model_register});
    }
    found->last_ns = verdict.end_ns;
    if (name.picture()) found->pictures = true;
    if (writes_settings(name) && !found->pictures) found->written = true;
}

void Link::note_oddities(const Transfer& transfer, const Verdict& verdict) {
    const auto add = [this](std::int64_t time_ns, Kind kind, std::uint32_t block, std::uint32_t last = 0) {
        Incident odd = incident(time_ns, kind);
        odd.block = block;
        odd.last = last;
        capture_.incidents.add(std::move(odd));
    };
    const Strays &strangers = verdict.strangers, &garbage = verdict.garbage;
    if (strangers.count > 0) add(strangers.first_ns, Kind::strangers, strangers.count, strangers.address);
    if (garbage.count > 0) add(garbage.first_ns, Kind::garbage, garbage.count);
    if (verdict.unseen > 0) add(transfer.begin_ns(), Kind::capture_gap, verdict.unseen);
    if (verdict.timing.slowest > prompt_ns && verdict.why != Why::too_late)
        add(verdict.timing.slowest_at, Kind::slow_answer, whole_milliseconds(verdict.timing.slowest));
}

void Link::take_whole(const Transfer& transfer, const Verdict& verdict) {
    ++counts_.answered;
    if (!transfer.name.picture()) return;
    if (counts_.whole++ == 0) counts_.first_ns = verdict.end_ns;
    counts_.last_ns = verdict.end_ns;
    counts_.bytes += verdict.bytes;
    counts_.largest = std::max<std::uint64_t>(counts_.largest, verdict.bytes);
}

void Link::take_lost(const Transfer& transfer, const Verdict& verdict, const IdLedger& ids) {
    const bool picture = transfer.name.picture();
    Incident lost = incident(transfer.begin_ns(), picture ? Kind::lost_picture : Kind::failed_request);
    lost.cause = verdict.cause;
    lost.why = verdict.why;
    lost.block = verdict.block;
    lost.last = verdict.last;
    lost.words = verdict.words;
    if (verdict.why == Why::missing &&
        ids.between(verdict.before_ns, verdict.behind_ns) == IdLedger::Answer::nothing_sent) {
        lost.cause = Loss::never_sent;
        lost.why = Why::left_out;
    }
    if (lost.why == Why::not_taken &&
        dropped_by_kernel(transfer.client.port, transfer.begin_ns(), verdict.end_ns))
        ++counts_.confirmed_late;
    if (!is_confirmed_by_key(transfer, verdict)) return lose(std::move(lost), picture);
    held_ = std::move(lost);
    held_port_ = transfer.client.port;
}

void Link::release_held(const Transfer& transfer) {
    if (!held_) return;
    Incident lost = std::move(*held_);
    held_.reset();
    const bool same = transfer.client.port == held_port_ && transfer.name.kind == link::Kind::h264;
    if (!same || transfer.name.key) return lose(std::move(lost), true);
    ++counts_.unknown;
    lost.kind = Kind::capture_gap;
    lost.block = 1;
    capture_.incidents.add(std::move(lost));
}

void Link::lose(Incident lost, bool picture) {
    const bool way =
        lost.cause == Loss::lost_on_way && (lost.why == Why::missing || lost.why == Why::nothing_came);
    const bool acknowledgement = lost.cause == Loss::ack_lost && lost.why == Why::nothing_behind && picture;
    if (way) ++ways_, ++capture_.ways;
    if (acknowledgement) ++acknowledgements_, ++capture_.acknowledgements;
    if (picture) ++counts_.lost.at(static_cast<std::size_t>(lost.cause));
    capture_.incidents.add(std::move(lost));
}

bool Link::dropped_by_kernel(std::uint16_t port, std::int64_t since_ns, std::int64_t until_ns) const {
    constexpr std::int64_t note_ns = 2 * second_in_ns;  // a note is about the second in front of it
    return std::any_of(capture_.drops.begin(), capture_.drops.end(), [&](const CaptureState::Drop& drop) {
        return drop.port == port && drop.time_ns >= since_ns &&
               nanoseconds_between(until_ns, drop.time_ns) <= note_ns;
    });
}

}  // namespace plendix
