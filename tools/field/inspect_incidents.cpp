#include "field/inspect_incidents.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace plendix {
namespace {

constexpr std::size_t most_kept = 200'000;
constexpr std::int64_t soon_ns = 30 * second_in_ns;

}  // namespace

void Incidents::add(Incident incident) {
    ++count_;
    if (kept_.size() < most_kept) kept_.push_back(std::move(incident));
}

std::vector<Incident> Incidents::sorted() const {
    std::vector<Incident> incidents = kept_;
    std::stable_sort(incidents.begin(), incidents.end(),
                     [](const Incident& a, const Incident& b) { return a.time_ns < b.time_ns; });
    return incidents;
}

std::vector<Folded> Incidents::folded() const {
    using Like = std::tuple<std::uint32_t, std::uint32_t, Incident::Kind, Loss, Why>;
    std::vector<Folded> lines;
    std::map<Like, std::size_t> latest;
    for (const Incident& incident : sorted()) {
        const Like like{incident.camera, incident.client, incident.kind, incident.cause, incident.why};
        const auto [found, first] = latest.try_emplace(like, lines.size());
        if (!first && nanoseconds_between(lines[found->second].until_ns, incident.time_ns) <= soon_ns) {
            Folded& line = lines[found->second];
            ++line.count;
            line.until_ns = incident.time_ns;
            continue;
        }
        found->second = lines.size();
        lines.push_back({incident, 1, incident.time_ns});
    }
    return lines;
}

}  // namespace plendix
