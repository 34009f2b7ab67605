#include "probe/finding_words.h"

#include <algorithm>
#include <cerrno>

#include "host/answer_words.h"
#include "link/words.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_bytes_shown = 8;

/// What a terminal shows of bytes, a dot for each that it does not.
std::string plain_characters(const link::Bytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return text;
}

std::string foreign_words(const Finding& finding) {
    const link::OddAnswer& answer = finding.answer;
    std::string words = "no camera: " + answer_words(answer);
    const bool told = answer.kind == link::Oddity::error || answer.kind == link::Oddity::echo;
    if (told || answer.first.empty()) return words;
    link::Bytes first = answer.first;
    first.resize(std::min(first.size(), most_bytes_shown));
    return words + ", begins " + hex_text({first.data(), first.size()}) + " '" + plain_characters(first) +
           '\'';
}

std::string refused_words(const Finding& finding) {
    const auto model = finding.value(register_model), firmware = finding.value(register_firmware);
    std::string words = "a camera, refused: model " + std::to_string(model.value_or(0));
    if (firmware) words += ", firmware " + std::to_string(*firmware);
    if (model && !driver_takes_model(*model)) return words + "; the driver takes models that end in 00 to 05";
    return words + "; the driver takes firmware from 61705 on";
}

std::string failed_words(int error) {
    if (error == EPERM) return "a firewall of this machine keeps us from it";
    if (error == EACCES) return "a broadcast address: it is not asked";
    if (error == EMFILE || error == ENFILE)
        return "cannot be asked: no descriptor is left, raise 'ulimit -n'";
    return "cannot be asked: " + error_text(error);
}

}  // namespace

const char* what_name(What what) {
    switch (what) {
        case What::unasked:
            return "unasked";
        case What::silent:
            return "silent";
        case What::closed:
            return "closed";
        case What::unreachable:
            return "unreachable";
        case What::no_route:
            return "no_route";
        case What::failed:
            return "failed";
        case What::foreign:
            return "foreign";
        case What::stops:
            return "stops";
        case What::starting:
            return "starting";
        case What::refused:
            return "refused";
        case What::camera:
            return "camera";
    }
    return "";
}

bool is_nobody(What what) {
    return what == What::silent || what == What::closed || what == What::unreachable ||
           what == What::no_route;
}

std::string finding_words(const Finding& finding) {
    switch (finding.what) {
        case What::unasked:
            return "not asked to the end";
        case What::silent:
            return "nobody answers";
        case What::closed:
            return "a machine with nothing on UDP port 69";
        case What::unreachable:
            return "nobody: the network says that it cannot be reached";
        case What::no_route:
            return "no route to it from here";
        case What::failed:
            return failed_words(finding.error);
        case What::foreign:
            return foreign_words(finding);
        case What::stops:
            return "answers like a camera and stops";
        case What::starting:
            return finding.registers.count(register_firmware) > 0
                       ? "a camera that starts: it does not know its firmware yet"
                       : "a camera that starts: it does not know its model yet";
        case What::refused:
            return refused_words(finding);
        case What::camera:
            break;
    }
    return "a camera";
}

}  // namespace plendix
