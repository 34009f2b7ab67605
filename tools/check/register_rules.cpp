#include "check/register_rules.h"

#include <array>

#include "link/driver_rules.h"

namespace plendix::check {
namespace {

constexpr int setup = 79, kept = 111;
constexpr std::uint16_t setup_value = 12308, io_sample = 48, io_low = 16, io_high = 32;

std::string reading(int number) {
    return "RRQ " + link::register_name(number);
}
std::string writing(int number, std::uint16_t value) {
    return "RRQ " + link::register_name(number, value);
}
std::string text_of(std::optional<std::uint16_t> value) {
    return value ? std::to_string(*value) : "no answer";
}

std::uint16_t combined(int value) {
    return static_cast<std::uint16_t>(value);
}

/// A register that holds what is written to it, and another value for it that the driver may write.
struct Setting {
    Rule rule;
    int number;
    std::uint16_t (*other)(std::uint16_t before);
    bool (*at_rest)(std::uint16_t value);
};

bool anything(std::uint16_t) {
    return true;
}

constexpr std::array<Setting, 6> settings{
    {{Rule::registers_2, 2, [](std::uint16_t before) { return combined(before == 99 ? 97 : 99); },
      [](std::uint16_t value) { return value % 2 == 1 && value < 200; }},
     {Rule::registers_15, 15, [](std::uint16_t before) { return combined(before == 3 ? 2 : 3); },
      [](std::uint16_t value) { return value <= 6; }},
     {Rule::registers_16, 16, [](std::uint16_t before) { return combined(before == 2 ? 1 : 2); },
      [](std::uint16_t value) { return value <= 4; }},
     {Rule::registers_109, 109, [](std::uint16_t before) { return combined((before & 0x7FFF) ^ 1); },
      anything},
     {Rule::registers_110, 110,
      [](std::uint16_t before) {
          return combined((before & 0xF0FF) | ((before >> 8 & 15) == 7 ? 6 : 7) << 8);
      },
      anything},
     {Rule::registers_111, 111,
      [](std::uint16_t before) { return combined((before & 0xFF00) | ((before & 0xFF) == 16 ? 19 : 16)); },
      anything}}};

void check_setting(Interview& interview, const Setting& setting) {
    Findings& findings = interview.findings();
    const auto before = interview.read(setting.number);
    if (!before) return findings.skip(setting.rule, interview.trouble());
    findings.judge(Rule::registers_unread, before != unread_value(setting.number),
                   {reading(setting.number), text_of(before), "another value"});
    const std::uint16_t wanted = setting.other(*before);
    Restored restored(interview, setting.rule, setting.number, *before);
    const auto answered = interview.write(setting.number, wanted);
    if (!answered) return findings.skip(setting.rule, interview.trouble());
    const Evidence evidence{writing(setting.number, wanted), text_of(answered), std::to_string(wanted)};
    if (*answered != wanted) return findings.fail(setting.rule, evidence);
    const auto held = interview.read(setting.number);
    if (!held) return findings.skip(setting.rule, interview.trouble());
    findings.judge(setting.rule, *held == wanted,
                   {evidence.sent + ", then read", text_of(held), evidence.expected});
    restored.restore();
    const std::string note = "it holds " + text_of(before) + ", which the driver writes over";
    findings.pass(setting.rule, setting.at_rest(*before) ? "" : note);
}

/// Of registers that are answered with a value at all.
bool check_level(Interview& interview, Rule rule, const std::string& sent) {
    const auto answered = interview.write(register_io, io_sample);
    const auto level = answered ? interview.read(register_io) : std::nullopt;
    if (!level) {
        interview.findings().skip(rule, interview.trouble());
        return false;
    }
    const std::string behind = sent.empty() ? "" : sent + ", then ";
    interview.findings().judge(rule, *answered == io_sample,
                               {behind + writing(register_io, io_sample), text_of(answered), "48"});
    interview.findings().judge(
        rule, *level <= 1,
        {behind + writing(register_io, io_sample) + ", then read", text_of(level), "0 or 1"});
    return true;
}

void check_relay(Interview& interview, bool high_before) {
    const std::uint16_t former = high_before ? io_high : io_low, other = high_before ? io_low : io_high;
    const std::string over = interview.examination().over();
    if (!over.empty()) return interview.findings().skip(Rule::registers_relay, over);
    const bool switched = interview.write(register_io, other).has_value();
    const std::string trouble = interview.trouble();
    {  // also where no answer came: it may have been switched all the same
        const Examination::Restoring restoring(interview.examination());
        if (!interview.write(register_io, former))
            interview.findings().fail(Rule::registers_relay,
                                      {writing(register_io, other) + ", then " + std::to_string(former),
                                       interview.trouble(), "an answer: the relay may stay switched"});
    }
    if (!switched) return interview.findings().skip(Rule::registers_relay, trouble);
    const std::string sent = std::to_string(other) + ", then " + std::to_string(former);
    if (check_level(interview, Rule::registers_relay, sent))
        interview.findings().pass(Rule::registers_relay, high_before ? "it is high" : "it is low now");
}

}  // namespace

void Restored::restore() {
    if (done_) return;
    done_ = true;
    const Examination::Restoring restoring(interview_.examination());
    interview_.write(number_, before_);
    const auto now = interview_.read(number_);
    if (now == before_) return;
    const std::string former = text_of(before_) + ", as it was before";
    interview_.findings().fail(rule_, {writing(number_, before_) + ", then read", text_of(now), former});
}

Restored::~Restored() {
    try {
        restore();
    } catch (const std::exception&) {  // no socket, no memory: it stays as it is
    }
}

Identity check_identity(Interview& interview) {
    Findings& findings = interview.findings();
    Identity identity;
    identity.model = interview.read(register_model);
    if (!identity.model) findings.skip(Rule::registers_model, interview.trouble());
    identity.firmware = interview.read(register_firmware);
    if (!identity.firmware) findings.skip(Rule::registers_firmware, interview.trouble());
    if (identity.model) {
        const bool supported = *identity.model > 0 && driver_takes_model(*identity.model);
        findings.judge(Rule::registers_model, supported,
                       {reading(register_model), text_of(identity.model), "100 to 105, or another such"});
    }
    if (identity.firmware)
        findings.judge(Rule::registers_firmware, driver_takes_firmware(*identity.firmware),
                       {reading(register_firmware), text_of(identity.firmware), "61705 or more"});
    return identity;
}

Sensor check_sensor(Interview& interview) {
    Findings& findings = interview.findings();
    std::array<std::uint16_t, 4> sides{};
    for (int i = 0; i < 4; ++i) {
        const int number = register_left + i;
        const auto value = interview.read(number);
        if (!value) findings.skip(Rule::registers_sensor, interview.trouble());
        if (!value) return {};
        sides.at(static_cast<std::size_t>(i)) = *value;
        findings.judge(Rule::registers_unread, value != unread_value(number),
                       {reading(number), text_of(value), "another value"});
    }
    Sensor sensor{{sides[0], sides[1], sides[2], sides[3]}, false};
    sensor.known = sensor.area.width() > 0 && sensor.area.height() > 0;
    findings.judge(
        Rule::registers_sensor, sensor.known,
        {"RRQ getreg?page=3;reg=70; to 73",
         text_of(sides[0]) + ", " + text_of(sides[1]) + ", " + text_of(sides[2]) + ", " + text_of(sides[3]),
         "left, top, right and bottom, the last two greater"});
    return sensor;
}

void check_settings(Interview& interview) {
    for (const Setting& setting : settings)
        check_setting(interview, setting);
    Findings& findings = interview.findings();
    const auto answered = interview.write(setup, setup_value);
    if (!answered) return findings.skip(Rule::registers_setup, interview.trouble());
    const std::string note = "the answer is " + text_of(answered);
    findings.judge(Rule::registers_setup, *answered != 0,
                   {writing(setup, setup_value), text_of(answered), "12308"});
    findings.pass(Rule::registers_setup, *answered == setup_value ? "" : note);
}

void check_trigger(Interview& interview) {
    Findings& findings = interview.findings();
    const auto before = interview.read(register_io);
    if (!before) return findings.skip(Rule::registers_trigger, interview.trouble());
    check_level(interview, Rule::registers_trigger, {});
    if (!interview.examination().options.relay)
        return findings.skip(Rule::registers_relay, "it would switch something: --relay allows it");
    check_relay(interview, (*before & io_sample) == io_high);
}

KeptRegister::KeptRegister(Interview& interview) : interview_(interview) {
    const auto before = interview.read(kept);
    trouble_ = interview.trouble();
    if (!before) return;
    restored_ = std::make_unique<Restored>(interview, Rule::registers_kept, kept, *before);
    const auto answered = interview.write(kept, settings.back().other(*before));
    trouble_ = interview.trouble();
    if (answered && *answered != settings.back().other(*before))
        trouble_ = "111 does not hold what is written";
    written_ = answered.value_or(0);
}

void KeptRegister::judge() {
    Findings& findings = interview_.findings();
    const auto now = trouble_.empty() ? interview_.read(kept) : std::nullopt;
    if (now)
        findings.judge(
            Rule::registers_kept, *now == written_,
            {writing(kept, written_) + ", and pictures, then read", text_of(now), text_of(written_)});
    else
        findings.skip(Rule::registers_kept, trouble_.empty() ? interview_.trouble() : trouble_);
    if (restored_) restored_->restore();
}

}  // namespace plendix::check
