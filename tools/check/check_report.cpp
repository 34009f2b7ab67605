#include "check/check_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/words.h"

namespace plendix::check {
namespace {

using nlohmann::ordered_json;

const char* word_of(Verdict verdict) {
    return verdict == Verdict::pass ? "PASS" : verdict == Verdict::fail ? "FAIL" : "SKIP";
}

std::string group_of(const std::string& name) {
    return name.substr(0, name.find('.'));
}

std::string padded(std::string text, std::size_t columns) {
    text.resize(std::max(text.size(), columns), ' ');
    return text;
}

std::string codecs_of(const CheckReport& report) {
    if (report.jpeg && report.h264) return "JPEG and H.264";
    return report.jpeg ? "JPEG" : report.h264 ? "H.264" : "no pictures";
}

std::string title_of(const CheckReport& report) {
    const auto number = [](const std::optional<std::uint16_t>& value) {
        return value ? std::to_string(*value) : "unknown";
    };
    return report.address + ": model " + number(report.identity.model) + ", firmware " +
           number(report.identity.firmware) + ", sensor " + std::to_string(report.sensor.width()) + 'x' +
           std::to_string(report.sensor.height()) + ", " + codecs_of(report);
}

void print_evidence(std::ostream& out, const Finding& finding) {
    const std::string indent(6, ' ');
    out << indent << "sent      " << finding.evidence.sent << '\n'
        << indent << "came      " << finding.evidence.came << '\n'
        << indent << "expected  " << finding.evidence.expected << '\n';
    if (finding.failures == 2) out << indent << "and once more\n";
    if (finding.failures > 2) out << indent << "and " << finding.failures - 1 << " times more\n";
}

}  // namespace

void print_report(std::ostream& out, const CheckReport& report) {
    constexpr std::size_t name_columns = 22;
    out << title_of(report) << '\n';
    std::string group;
    for (std::size_t i = 0; i < rules; ++i) {
        const RuleWords& words = rule_words().at(i);
        const Finding& finding = report.findings.of(static_cast<Rule>(i));
        if (group_of(words.name) != group) out << '\n';
        group = group_of(words.name);
        out << word_of(finding.verdict) << "  " << padded(words.name, name_columns) << words.text;
        out << (finding.note.empty() ? "" : " (" + finding.note + ')') << '\n';
        if (finding.verdict == Verdict::fail) print_evidence(out, finding);
    }
    out << '\n'
        << report.findings.count(Verdict::pass) << " PASS, " << report.findings.count(Verdict::fail)
        << " FAIL, " << report.findings.count(Verdict::skip) << " SKIP in " << fixed(report.took.count(), 1)
        << " s" << '\n';
}

void print_report_json(std::ostream& out, const CheckReport& report) {
    ordered_json json{{"address", report.address}, {"answers", report.heard}};
    if (report.identity.model) json["model"] = *report.identity.model;
    if (report.identity.firmware) json["firmware"] = *report.identity.firmware;
    json["sensor"] = {report.sensor.width(), report.sensor.height()};
    json["jpeg"] = report.jpeg;
    json["h264"] = report.h264;
    json["pass"] = report.findings.count(Verdict::pass);
    json["fail"] = report.findings.count(Verdict::fail);
    json["skip"] = report.findings.count(Verdict::skip);
    json["seconds"] = report.took.count();
    json["rules"] = ordered_json::array();
    for (std::size_t i = 0; i < rules; ++i) {
        const Finding& finding = report.findings.of(static_cast<Rule>(i));
        ordered_json rule{{"rule", rule_words().at(i).name},
                          {"text", rule_words().at(i).text},
                          {"verdict", word_of(finding.verdict)}};
        if (!finding.note.empty()) rule["note"] = finding.note;
        if (finding.verdict == Verdict::fail) {
            rule["sent"] = finding.evidence.sent;
            rule["came"] = finding.evidence.came;
            rule["expected"] = finding.evidence.expected;
            rule["failures"] = finding.failures;
        }
        json["rules"].push_back(std::move(rule));
    }
    out << json.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace plendix::check
