#include "check/packet_text.h"

#include <algorithm>

#include "host/plain_text.h"
#include "link/words.h"

namespace plendix::check {
namespace {

constexpr std::size_t longest_words = 60;  // columns

std::string words_of(link::View strings) {
    std::string words(strings.data, strings.data + std::min<std::size_t>(strings.size, 4 * longest_words));
    if (!words.empty() && words.back() == '\0') words.pop_back();
    std::replace(words.begin(), words.end(), '\0', ' ');
    return cut(printable(words), longest_words);
}

std::string bytes_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string name_of(const link::Packet& packet) {
    const std::string number = std::to_string(packet.number);
    switch (packet.opcode) {
        case link::Opcode::read_request:
            return "RRQ " + words_of(packet.rest);
        case link::Opcode::write_request:
            return "WRQ " + words_of(packet.rest);
        case link::Opcode::data:
            return "DATA " + number + ", " + bytes_text(packet.rest.size);
        case link::Opcode::acknowledgement:
            return "ACK " + number;
        case link::Opcode::error:
            return "ERROR " + number + " '" + cut(printable(error_words(packet)), longest_words) + '\'';
        default:
            return "OACK " + words_of(packet.rest);
    }
}

}  // namespace

std::string packet_text(link::View datagram) {
    const auto packet = link::parse_packet(datagram);
    const std::string name = packet ? name_of(*packet) : bytes_text(datagram.size) + " that are no packet";
    return name + ": " + first_bytes(datagram);
}

std::string first_bytes(link::View bytes) {
    constexpr std::size_t most = 16;
    const std::string text = hex_text({bytes.data, std::min(bytes.size, most)});
    return bytes.size > most ? text + " ..." : text;
}

}  // namespace plendix::check
