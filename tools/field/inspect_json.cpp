// Findings as programs read them.
#include <nlohmann/json.hpp>
#include <ostream>

#include "field/datagram.h"
#include "field/inspect_report.h"
#include "host/event_json.h"

namespace plendix {
namespace {

using Json = nlohmann::ordered_json;

std::string key_of(std::string name) {
    for (char& c : name)
        if (c == ' ') c = '_';
    return name;
}

std::string moment(std::int64_t time_ns) {
    return utc_text(time_ns / 1'000'000);
}

Json delays(const Delays& delays) {
    return {{"count", delays.count()},
            {"median_ms", delays.quantile(0.5) / 1e6},
            {"p99_ms", delays.quantile(0.99) / 1e6}};
}

Json pair_of(const Findings::Pair& pair) {
    const LinkCounts& counts = pair.counts;
    Json lost = Json::object();
    for (std::size_t i = 0; i < losses; ++i)
        lost[key_of(loss_name(static_cast<Loss>(i)))] = counts.lost[i];
    return {{"camera", address_text(pair.camera)},
            {"client", address_text(pair.client)},
            {"requests", counts.requests},
            {"answered", counts.answered},
            {"register_reads", counts.reads},
            {"register_writes", counts.writes},
            {"answer", delays(counts.answers)},
            {"block", delays(counts.blocks)},
            {"pictures", counts.pictures},
            {"whole", counts.whole},
            {"unknown", counts.unknown},
            {"bytes", counts.bytes},
            {"largest_bytes", counts.largest},
            {"first_picture", counts.whole > 0 ? Json(moment(counts.first_ns)) : Json()},
            {"last_picture", counts.whole > 0 ? Json(moment(counts.last_ns)) : Json()},
            {"lost", lost},
            {"lost_either_way", counts.either},
            {"ours_late_confirmed", counts.confirmed_late}};
}

Json incident_of(const Incident& incident) {
    Json object{{"time", moment(incident.time_ns)}};
    object["camera"] = incident.camera != 0 ? Json(address_text(incident.camera)) : Json();
    object["client"] = incident.client != 0 ? Json(address_text(incident.client)) : Json();
    object["kind"] = key_of(kind_name(incident.kind));
    if (incident.kind == Incident::Kind::lost_picture || incident.kind == Incident::Kind::failed_request)
        object["cause"] = key_of(loss_name(incident.cause));
    object["text"] = words_of(incident);
    return object;
}

}  // namespace

void print_findings_json(std::ostream& out, const Findings& findings, const ReportOptions& options) {
    Json document{{"file", options.file}, {"remarks", options.remarks}, {"datagrams", findings.datagrams}};
    document["from"] = findings.datagrams > 0 ? Json(moment(findings.first_ns)) : Json();
    document["to"] = findings.datagrams > 0 ? Json(moment(findings.last_ns)) : Json();
    document["unassigned"] = findings.unassigned;
    document["dropped_by_kernel"] = findings.dropped;
    document["links"] = Json::array();
    for (const Findings::Pair& pair : findings.pairs)
        document["links"].push_back(pair_of(pair));
    document["incidents"] = Json::array();
    for (const Incident& incident : findings.incidents.sorted())
        document["incidents"].push_back(incident_of(incident));
    document["incidents_not_kept"] = findings.incidents.count() - document["incidents"].size();
    // Names and words need not be UTF-8: bytes that are none become U+FFFD.
    out << document.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace plendix
