// What was found of each rule. One thread.
#pragma once

#include "check/rules.h"

namespace plendix::check {

enum class Verdict { skip, pass, fail };

/// Of a rule that does not hold: one line each, fit for a terminal.
struct Evidence {
    std::string sent, came, expected;
};

struct Finding {
    Verdict verdict = Verdict::skip;
    std::string note;          // why it could not be judged, or what is worth knowing
    Evidence evidence;         // of the first failure
    std::size_t failures = 0;  // the others look alike, mostly
};

class Findings {
public:
    /// A failure stays one, whatever comes later; of several notes the first one stays.
    void pass(Rule rule, const std::string& note = {});
    void fail(Rule rule, const Evidence& evidence);
    void skip(Rule rule, const std::string& reason);
    /// All rules of a group that nothing is known of: "jpeg", say.
    void skip_group(const std::string& group, const std::string& reason);
    void judge(Rule rule, bool holds, const Evidence& evidence);

    const Finding& of(Rule rule) const { return findings_.at(static_cast<std::size_t>(rule)); }
    std::size_t count(Verdict verdict) const;

private:
    Finding& at(Rule rule) { return findings_.at(static_cast<std::size_t>(rule)); }
    std::array<Finding, rules> findings_;
};

}  // namespace plendix::check
