// Findings as people and programs read them.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "field/inspector.h"

namespace plendix {

struct ReportOptions {
    std::string file;
    std::vector<std::string> remarks;  // of what the findings rest on
    bool all = false;                  // each incident in a line of its own
    bool utc = false;
};

/// What comes from the capture is made fit for a terminal.
void print_findings(std::ostream& out, const Findings& findings, const ReportOptions& options);
/// One JSON object; times in UTC.
void print_findings_json(std::ostream& out, const Findings& findings, const ReportOptions& options);

}  // namespace plendix
