#include "check/request_rules.h"

#include <algorithm>
#include <set>
#include <utility>

#include "check/packet_text.h"
#include "host/words.h"
#include "link/driver_rules.h"

namespace plendix::check {
namespace {

constexpr std::size_t other_size = 1024;
constexpr milliseconds prompt{100};
constexpr const char* too_short = "the picture did not come so far";

void append(link::Bytes& packet, const std::string& words) {
    packet.insert(packet.end(), words.begin(), words.end());
    packet.push_back(0);
}

link::Bytes request_of(const std::string& name, const std::vector<std::string>& mode_and_options) {
    link::Bytes packet{0, static_cast<std::uint8_t>(link::Opcode::read_request)};
    append(packet, name);
    for (const std::string& word : mode_and_options)
        append(packet, word);
    return packet;
}

/// The model, asked for in another way, as the camera told it before.
void check_other_way(Interview& interview, Rule rule, const std::vector<std::vector<std::string>>& ways) {
    const std::string name = link::register_name(register_model);
    for (const auto& words : ways) {
        std::string text = name;
        for (const std::string& word : words)
            text += ' ' + word;
        Request request = request_for(name, false, true);
        request.name = text;
        request.packet = request_of(name, words);
        const Fetched fetched = interview.ask(request);
        const std::string over = interview.examination().over();
        if (!over.empty()) return interview.findings().skip(rule, over);
        interview.findings().judge(
            rule, fetched.whole() && fetched.last.size() == 2,
            {"RRQ " + text, fetched.trouble, "the model, as with netascii and blksize"});
    }
}

/// What the camera says to a file that does not exist is its own affair.
void check_unknown(Interview& interview, Rule rule, const std::string& name) {
    const std::string over = interview.examination().over();
    if (!over.empty()) return interview.findings().skip(rule, over);
    Conversation& conversation = interview.open();
    const Request request = request_for(name, false, true);
    conversation.request(request.packet, name);
    const auto answer = conversation.next(Clock::now() + interview.examination().options.withheld);
    const std::string came = answer ? packet_text({answer->bytes.data(), answer->bytes.size()}) : "nothing";
    if (interview.read(register_model)) return interview.findings().pass(rule);
    const std::string ended = interview.examination().ended();
    if (!ended.empty()) return interview.findings().skip(rule, ended);
    interview.findings().fail(
        rule, {"RRQ " + name + ", then " + link::register_name(register_model), came + ", then nothing",
               "an ERROR, an answer or nothing, then the model"});
}

/// One picture, step by step, with the acknowledgements that the camera should wait for held back.
class Steps {
public:
    Steps(Interview& interview, const link::FileName& picture)
        : interview_(interview),
          conversation_(interview.open()),
          patience_(interview.examination().options.patience),
          name_(link::picture_name(picture)) {}

    /// All are false where the camera did not come so far.
    bool options() {
        conversation_.request(link::read_request(name_), name_);
        if (!until(link::Opcode::options, 0)) return missing(Rule::options_wait);
        return quiet(Rule::options_wait, 1);
    }
    bool first_block() {
        conversation_.acknowledge(0);
        if (!until(link::Opcode::data, 1)) return missing(Rule::blocks_wait);
        return quiet(Rule::blocks_wait, 2);
    }
    bool second_block() {
        if (interview_.findings().of(Rule::blocks_wait).verdict == Verdict::fail)
            return missing(Rule::blocks_repeat, "its blocks do not wait");
        conversation_.acknowledge(1);
        if (!until(link::Opcode::data, 2)) return missing(Rule::blocks_repeat);
        conversation_.acknowledge(1);
        return quiet(Rule::blocks_repeat, 3);
    }
    Conversation& conversation() { return conversation_; }

private:
    using Seen = std::pair<link::Opcode, std::uint16_t>;

    std::optional<Datagram> next(Clock::time_point end) {
        auto datagram = conversation_.next(end);
        if (datagram) seen_.insert({datagram->packet.opcode, datagram->packet.number});
        return datagram;
    }
    bool until(link::Opcode opcode, std::uint16_t number) {
        const auto end = Clock::now() + patience_;
        while (seen_.count({opcode, number}) == 0)
            if (!next(end)) return false;
        return true;
    }
    /// Nothing but repetitions come while an acknowledgement is held back.
    bool quiet(Rule rule, std::uint16_t early) {
        const auto end = Clock::now() + interview_.examination().options.withheld;
        while (const auto datagram = next(end)) {
            if (datagram->packet.opcode != link::Opcode::data || datagram->packet.number < early) continue;
            interview_.findings().fail(
                rule, {conversation_.sent(), packet_text({datagram->bytes.data(), datagram->bytes.size()}),
                       "nothing before the acknowledgement of block " + std::to_string(early - 1)});
            return true;
        }
        interview_.findings().pass(rule);
        return true;
    }
    bool missing(Rule rule, const char* reason = too_short) {
        interview_.findings().skip(rule, reason);
        return false;
    }

    Interview& interview_;
    Conversation& conversation_;
    const milliseconds patience_;
    const std::string name_;
    std::set<Seen> seen_;
};

void check_next_request(Interview& interview, Rule rule, Conversation& conversation,
                        const std::string& sent) {
    const Request request = request_for(link::register_name(register_model), false, true);
    const Fetched fetched = fetch(conversation, request);
    const std::string over = interview.examination().over();
    if (!fetched.whole() && !over.empty()) return interview.findings().skip(rule, over);
    interview.findings().judge(rule, fetched.whole(),
                               {sent + ", then RRQ " + request.name, fetched.trouble, "the model"});
}

void check_other_size(Interview& interview, const link::FileName& picture) {
    const std::string name = link::picture_name(picture);
    Request request = request_for(name, true);
    request.packet = link::read_request(name, other_size);
    request.block_size = other_size;
    request.size_rule = Rule::options_other;
    const Fetched fetched = interview.ask(request);
    Findings& findings = interview.findings();
    if (!fetched.whole()) findings.skip(Rule::options_other, fetched.trouble);
}

}  // namespace

void check_requests(Interview& interview) {
    if (!interview.read(register_model))
        return interview.findings().skip_group("requests", interview.trouble());
    check_other_way(interview, Rule::requests_mode,
                    {{"octet", "blksize", "1450"}, {"OCTET", "blksize", "1450"}});
    check_other_way(interview, Rule::requests_options,
                    {{"netascii", "tsize", "0", "blksize", "1450"},
                     {"netascii", "blksize", "1450", "timeout", "3", "colour", "red"}});
    check_unknown(interview, Rule::requests_register, link::register_name(9999));
    check_unknown(interview, Rule::requests_file, "nothing?reg=122;");
}

void check_steps(Interview& interview, const link::FileName& picture) {
    check_other_size(interview, picture);
    Steps first(interview, picture);
    const bool begun = first.options() && first.first_block();
    if (begun) first.second_block();
    first.conversation().abandon();
    if (begun)
        check_next_request(interview, Rule::requests_replace, first.conversation(), "a part of a picture");
    else
        interview.findings().skip(Rule::requests_replace, too_short);
    Steps second(interview, picture);
    if (!second.options()) return interview.findings().skip(Rule::requests_silence, too_short);
    second.conversation().next(Clock::now() + interview.examination().options.abandoned);
    check_next_request(interview, Rule::requests_silence, interview.open(), "nothing for a while");
}

void check_unknown_keys(Interview& interview, const link::FileName& picture) {
    std::string name = link::picture_name(picture);
    name.insert(name.find('?') + 1, "colour=red;");
    Request request = request_for(name + "zoom=3;", true, true);
    const Fetched fetched = interview.ask(request);
    const std::string over = interview.examination().over();
    if (!fetched.whole() && !over.empty()) return interview.findings().skip(Rule::requests_keys, over);
    interview.findings().judge(Rule::requests_keys, fetched.whole(),
                               {"RRQ " + request.name, fetched.trouble, "the picture"});
}

void check_waits(Interview& interview) {
    auto& waits = interview.examination().waits;
    if (waits.empty()) return interview.findings().skip(Rule::answers_prompt, "no packet was waited for");
    std::sort(waits.begin(), waits.end());
    const auto text = [&](std::size_t index) {
        return fixed(std::chrono::duration<double, std::milli>(waits[index]).count(), 1) + " ms";
    };
    const std::size_t most = waits.size() * 19 / 20;
    const std::string summary = "median " + text(waits.size() / 2) + ", 95 % " + text(most) + ", longest " +
                                text(waits.size() - 1) + " of " + std::to_string(waits.size());
    interview.findings().judge(Rule::answers_prompt, waits[most] <= prompt,
                               {"requests and acknowledgements", summary, "95 % within 100 ms"});
    interview.findings().pass(Rule::answers_prompt, summary);
}

}  // namespace plendix::check
