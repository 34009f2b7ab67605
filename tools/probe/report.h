// What a probe found, as a table for people and as JSON for programs. Pure but for the stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <set>
#include <vector>

#include "probe/finding.h"

namespace plendix {

struct ProbeResult {
    std::vector<std::uint32_t> addresses;
    std::vector<Finding> findings;          // of these, in their order
    std::set<std::uint32_t> named;          // those that are told whatever is there
    std::chrono::milliseconds duration{0};  // of all
};

void print_findings(std::ostream& out, const ProbeResult& result);
void print_findings_json(std::ostream& out, const ProbeResult& result);

}  // namespace plendix
