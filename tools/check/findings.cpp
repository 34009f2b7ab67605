#include "check/findings.h"

#include <algorithm>

namespace plendix::check {

void Findings::pass(Rule rule, const std::string& note) {
    Finding& finding = at(rule);
    if (finding.verdict == Verdict::skip) finding = {Verdict::pass, {}, {}, 0};
    if (finding.note.empty()) finding.note = note;
}

void Findings::fail(Rule rule, const Evidence& evidence) {
    Finding& finding = at(rule);
    if (finding.failures++ > 0) return;
    finding.verdict = Verdict::fail;
    finding.note.clear();
    finding.evidence = evidence;
}

void Findings::skip(Rule rule, const std::string& reason) {
    Finding& finding = at(rule);
    if (finding.verdict == Verdict::skip && finding.note.empty()) finding.note = reason;
}

void Findings::skip_group(const std::string& group, const std::string& reason) {
    for (std::size_t i = 0; i < rules; ++i)
        if (rule_words().at(i).name.rfind(group + '.', 0) == 0) skip(static_cast<Rule>(i), reason);
}

void Findings::judge(Rule rule, bool holds, const Evidence& evidence) {
    holds ? pass(rule) : fail(rule, evidence);
}

std::size_t Findings::count(Verdict verdict) const {
    return static_cast<std::size_t>(
        std::count_if(findings_.begin(), findings_.end(),
                      [verdict](const Finding& finding) { return finding.verdict == verdict; }));
}

}  // namespace plendix::check
