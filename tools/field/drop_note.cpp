#include "field/drop_note.h"

#include <charconv>
#include <optional>
#include <sstream>

namespace plendix {
namespace {

constexpr const char* beginning = "plendix: socket ";
constexpr std::size_t most_notes = 256;  // of a packet: a driver has a socket for each of 255 cameras

/// Takes the text up to `mark` off the front, with the mark; nothing where it is not.
std::optional<std::string> take_until(std::string& rest, const std::string& mark) {
    const std::size_t at = rest.find(mark);
    if (at == std::string::npos) return std::nullopt;
    std::string taken = rest.substr(0, at);
    rest.erase(0, at + mark.size());
    return taken;
}

std::optional<std::uint64_t> number_of(const std::optional<std::string>& text) {
    std::uint64_t number = 0;
    if (!text) return std::nullopt;
    const char* const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<DropNote> note_of(std::string line) {
    if (take_until(line, beginning) != std::string()) return std::nullopt;
    const auto socket = endpoint_of(take_until(line, " dropped ").value_or(""));
    const auto total = number_of(take_until(line, " (+"));
    const auto added = number_of(take_until(line, ")"));
    if (!socket || !total || !added) return std::nullopt;
    return DropNote{*socket, *total, *added};
}

}  // namespace

std::string drop_note(const DropNote& note) {
    return beginning + to_text(note.socket) + " dropped " + std::to_string(note.total) + " (+" +
           std::to_string(note.added) + ")";
}

std::vector<DropNote> drop_notes(const std::string& comment) {
    std::vector<DropNote> notes;
    std::istringstream lines(comment);
    for (std::string line; notes.size() < most_notes && std::getline(lines, line);)
        if (const auto note = note_of(line)) notes.push_back(*note);
    return notes;
}

}  // namespace plendix
