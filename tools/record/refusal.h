// Why an output does not write, and what people can do about it.
#pragma once

#include <cerrno>
#include <filesystem>
#include <string>

namespace plendix {

struct Refusal {
    std::string text;  // with the file's name; empty: nothing is refused
    int code = 0;      // errno value

    explicit operator bool() const { return !text.empty(); }
};

/// No room on the disk or left by a quota.
inline bool out_of_room(int code) {
    return code == ENOSPC || code == EDQUOT;
}

/// One line for people: what is wrong with the folder and what to do. The same for all cameras that
/// suffer from the same. `keeps`: there is a retention that removes old segments.
std::string refusal_words(const Refusal& refusal, const std::filesystem::path& folder, bool keeps);

}  // namespace plendix
