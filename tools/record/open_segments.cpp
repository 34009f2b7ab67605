#include "record/open_segments.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include "host/descriptor.h"
#include "record/segment_name.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr const char* notes = ".plendix-open";
constexpr std::size_t slot_bytes = 48;  // one for each camera: the stem, blanks, a line end
constexpr std::size_t slots = 256;

}  // namespace

void note_open_segment(const fs::path& folder, int camera, const fs::path& stem) {
    const std::string& text = stem.native();
    std::array<char, slot_bytes> slot{};
    slot.fill(' ');
    slot.back() = '\n';
    if (text.size() >= slot.size()) return;
    std::copy(text.begin(), text.end(), slot.begin());
    const Descriptor file(
        ::open((folder / notes).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666));
    const auto at = static_cast<off_t>(slot_bytes) * camera;
    // Without it what was changed last is looked at.
    if (::pwrite(file.get(), slot.data(), slot.size(), at) < 0) return;
}

std::vector<fs::path> noted_segments(const fs::path& folder) {
    std::vector<fs::path> stems;
    const Descriptor file(::open((folder / notes).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    std::string text(slots * slot_bytes, ' ');
    const ssize_t got = ::pread(file.get(), text.data(), text.size(), 0);
    for (std::size_t at = 0; got > 0 && at < static_cast<std::size_t>(got); at += slot_bytes) {
        const std::string slot = text.substr(at, slot_bytes);
        const fs::path stem = slot.substr(0, slot.find_first_of(" \n"));
        if (parse_stem(stem)) stems.push_back(stem);
    }
    return stems;
}

}  // namespace plendix
