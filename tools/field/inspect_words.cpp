// Incidents in words.
#include "field/datagram.h"
#include "field/inspect_incidents.h"
#include "host/plain_text.h"

namespace plendix {
namespace {

using Kind = Incident::Kind;

constexpr std::size_t most_columns = 100;  // of what others sent

std::string counted(std::uint32_t count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string block_of(const Incident& incident) {
    return "block " + std::to_string(incident.block) +
           (incident.last > 0 ? " of " + std::to_string(incident.last) : "");
}

std::string quoted(const std::string& words) {
    return words.empty() ? "" : " \"" + cut(printable(words), most_columns) + '"';
}

std::string seconds(std::uint32_t milliseconds) {
    const std::string rest = std::to_string(1000 + milliseconds % 1000).substr(1, 2);
    return std::to_string(milliseconds / 1000) + '.' + rest + " s";
}

/// What stands behind the acknowledgement that was sent last.
std::string behind(const Incident& incident) {
    return "nothing came behind the acknowledgement of " +
           (incident.block == 0 ? std::string("the options") : "block " + std::to_string(incident.block));
}

/// What the camera did not do as it should.
std::string camera_words(const Incident& incident) {
    switch (incident.why) {
        case Why::number_not_there:
            return "there is no " + block_of(incident);
        case Why::cut_short:
            return "block " + std::to_string(incident.block) + " was cut short";
        case Why::left_out:
            return block_of(incident) + " was left out";
        case Why::closed_by_size:
            return "a datagram of " + counted(incident.block, "byte") + " made the driver close its port";
        case Why::error_packet:
            return "error " + std::to_string(incident.block) + quoted(incident.words);
        case Why::no_options:
            return "data without an option acknowledgement";
        case Why::size_of_512:
            return "the block size was granted with 512, or not at all";
        case Why::complaint:
            return incident.words;
        case Why::too_large:
            return counted(incident.last, "block") + " are more than the driver holds";
        case Why::restarted:
            return "it was restarted";
        case Why::no_next_answer:
            return "and the next request was not answered at once";
        case Why::too_late:
            return "the answer came after " + seconds(incident.block);
        default:
            return {};
    }
}

std::string why_words(const Incident& incident) {
    switch (incident.why) {
        case Why::missing:
            return block_of(incident) + " did not come";
        case Why::behind_the_end:
            return block_of(incident) + " came behind the end";
        case Why::nothing_came:
            return "nothing came of the request";
        case Why::nothing_behind:
            return behind(incident);
        case Why::nothing_at_the_end:
            return behind(incident) + ", where the trailer may have been next";
        case Why::not_taken:
            return (incident.block == 0 ? std::string("the option acknowledgement") : block_of(incident)) +
                   " was here, but was not acknowledged";
        case Why::went_on:
            return "the client went on from another port";
        case Why::next_request:
            return "the client made the next request";
        case Why::said_so:
            return "the client said so";
        case Why::went_away:
            return "the client sent nothing more";
        case Why::led_astray:
            return "the request went to " + address_text(incident.last);
        default:
            return camera_words(incident);
    }
}

std::string loss_words(const Incident& incident) {
    const std::string why = why_words(incident);
    return std::string(loss_name(incident.cause)) + (why.empty() ? "" : ": " + why);
}

}  // namespace

std::string words_of(const Incident& incident) {
    switch (incident.kind) {
        case Kind::lost_picture:
            return "picture " + loss_words(incident);
        case Kind::failed_request:
            return "register request " + loss_words(incident);
        case Kind::reconnected:
            return "identified again from port " + std::to_string(incident.block) + ", before from port " +
                   std::to_string(incident.last);
        case Kind::restarted:
            return "the camera was restarted: its registers had to be written again";
        case Kind::strangers:
            return counted(incident.block, "datagram") + " of a stranger, " + address_text(incident.last);
        case Kind::garbage:
            return counted(incident.block, "datagram") + " of the camera with no meaning";
        case Kind::other_mac:
            return "another MAC address: " + incident.words;
        case Kind::other_format:
            return "pictures are " + incident.words + " now";
        case Kind::capture_gap:
            return "the capture missed " + counted(incident.block, "datagram") + ", as others show";
        case Kind::slow_answer:
            return "an answer took " + seconds(incident.block);
        case Kind::socket_drops:
            return "the kernel dropped " + counted(incident.block, "datagram") + " for port " +
                   std::to_string(incident.last);
    }
    return {};
}

const char* kind_name(Kind kind) {
    constexpr const char* names[] = {"lost picture", "failed request", "reconnected", "restarted",
                                     "strangers",    "garbage",        "other MAC",   "other format",
                                     "capture gap",  "slow answer",    "socket drops"};
    return names[static_cast<std::size_t>(kind)];
}

}  // namespace plendix
