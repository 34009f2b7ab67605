#include "check/interview.h"

#include <thread>

#include "check/packet_text.h"

namespace plendix::check {
namespace {

constexpr int attempts = 3;
constexpr milliseconds way_home{50};  // of what the camera sent last

link::View view_of(const link::Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

}  // namespace

Conversation& Interview::open() {
    constexpr std::size_t most = 200;
    if (conversations_.size() >= most) {
        conversations_.front().look_behind();
        conversations_.pop_front();
    }
    return conversations_.emplace_back(examination_);
}

Fetched Interview::ask(Conversation& conversation, const Request& request) {
    Fetched fetched;
    bool refused = false;
    // Somebody who waits for the end waits for one more answer, not for three.
    const bool hurry = examination_.restoring() && examination_.asked_to_end();
    for (int i = 0; i < (hurry ? 1 : attempts); ++i) {
        fetched.trouble = examination_.over();
        if (!fetched.trouble.empty()) return fetched;
        fetched = fetch(conversation, request);
        if (fetched.whole() || (request.optional && i > 0)) break;
        refused = refused || fetched.ending == Ending::refused;
    }
    if (fetched.whole() && request.optional && refused)
        findings().fail(Rule::answers_refused, {"RRQ " + request.name, "an ERROR, and then the file",
                                                "the file at the first request"});
    return fetched;
}

std::optional<std::uint16_t> Interview::value(const std::string& name) {
    const Fetched fetched = ask(request_for(name, false));
    trouble_ = fetched.trouble;
    if (!fetched.whole()) return std::nullopt;
    if (fetched.blocks == 0 && fetched.last.size() == 2) {
        findings().pass(Rule::registers_bytes);
        return static_cast<std::uint16_t>(fetched.last[0] << 8 | fetched.last[1]);
    }
    const std::size_t size = fetched.payload.size() + fetched.last.size();
    trouble_ = "a register was answered with " + std::to_string(size) + " bytes";
    findings().fail(
        Rule::registers_bytes,
        {"RRQ " + name, std::to_string(size) + " bytes: " + first_bytes(view_of(fetched.last)), "2 bytes"});
    return std::nullopt;
}

std::optional<std::uint16_t> Interview::read(int number) {
    return value(link::register_name(number));
}

std::optional<std::uint16_t> Interview::write(int number, std::uint16_t to) {
    return value(link::register_name(number, to));
}

Shot Interview::shoot(Conversation& conversation, const link::FileName& picture, bool optional) {
    Shot shot;
    shot.asked = picture;
    const std::string name = link::picture_name(picture);
    shot.fetched = ask(conversation, request_for(name, true, optional));
    shot.trouble = shot.fetched.trouble;
    if (!shot.good()) return shot;
    const auto trailer = link::parse_trailer(view_of(shot.fetched.last));
    const std::string size = std::to_string(shot.fetched.last.size()) + " bytes";
    findings().judge(
        Rule::pictures_trailer, trailer.has_value(),
        {"RRQ " + name, "a last block of " + size + ": " + first_bytes(view_of(shot.fetched.last)),
         "90 bytes or more"});
    if (!trailer) shot.trouble = "the trailer has " + size;
    if (!trailer) return shot;
    shot.trailer = *trailer;
    shot.trouble = link::trailer_complaint(*trailer);
    if (shot.good()) shot.file = link::make_picture(view_of(shot.fetched.payload), *trailer);
    return shot;
}

void Interview::look_behind() {
    std::this_thread::sleep_for(way_home);
    for (Conversation& conversation : conversations_)
        conversation.look_behind();
}

}  // namespace plendix::check
