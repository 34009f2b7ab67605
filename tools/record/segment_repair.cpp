#include "record/segment_repair.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <optional>
#include <set>

#include "host/descriptor.h"
#include "record/open_segments.h"
#include "record/segment_files.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

// Element IDs of Matroska (RFC 9559).
constexpr std::uint32_t id_header = 0x1A45DFA3;
constexpr std::uint32_t id_segment = 0x18538067;
constexpr std::uint32_t id_seek_head = 0x114D9B74;
constexpr std::uint32_t id_cluster = 0x1F43B675;
constexpr std::uint32_t id_checksum = 0xBF;
constexpr std::uint8_t id_void = 0xEC;

constexpr std::uint64_t unknown_size = ~std::uint64_t{0};
constexpr std::uint64_t segment_size_bytes = 8;  // always, to be filled in later
constexpr std::size_t checksum_bytes = 4;
constexpr std::size_t most_checked = 10'000;               // clusters that a power cut can have spoilt
constexpr std::uint64_t most_cluster_bytes = 256U << 20U;  // far more than a picture
constexpr std::uint64_t stump_bytes = 64;                  // a movie that is shorter may have lost its header

struct Element {
    std::uint32_t id = 0;
    std::uint64_t begin = 0;    // of the ID
    std::uint64_t content = 0;  // its beginning
    std::uint64_t size = 0;     // of the content, or unknown_size

    std::uint64_t end() const { return content + size; }
};

struct Layout {
    bool ours = false;
    bool closed = false;
    std::uint64_t length = 0;  // of the file
    timespec changed{};
    std::uint64_t playable = 0;       // up to the end of the last whole cluster; 0: there is none
    std::optional<Element> segment;   // the element that holds everything
    std::optional<Element> contents;  // a table of the file's parts, which may be gone
};

/// Reads the head of the element at a position; nothing when there is none.
std::optional<Element> element_at(int file, std::uint64_t at) {
    std::array<std::uint8_t, 12> head{};
    const ssize_t got = ::pread(file, head.data(), head.size(), static_cast<off_t>(at));
    if (got < 2 || head[0] < 0x10) return std::nullopt;
    const auto leading = [&head](std::size_t at_byte) {  // zeros of a byte, and one
        return static_cast<std::size_t>(__builtin_clz(head[at_byte])) - 23;
    };
    const std::size_t id_bytes = leading(0);  // 1 to 4
    if (head[id_bytes] == 0) return std::nullopt;
    const std::size_t size_bytes = leading(id_bytes);
    if (id_bytes + size_bytes > static_cast<std::size_t>(got)) return std::nullopt;
    Element element;
    element.begin = at;
    for (std::size_t i = 0; i < id_bytes; ++i)
        element.id = element.id << 8 | head[i];
    std::uint64_t size = head[id_bytes] & ((1U << (8 - size_bytes)) - 1);
    for (std::size_t i = 1; i < size_bytes; ++i)
        size = size << 8 | head[id_bytes + i];
    const bool unknown = size == (std::uint64_t{1} << (7 * size_bytes)) - 1;
    element.size = unknown ? unknown_size : size;
    element.content = at + id_bytes + size_bytes;
    return element;
}

/// Whether a cluster's checksum, its first element, fits the rest. One without a checksum counts as intact.
bool intact(int file, const Element& cluster) {
    const auto checksum = element_at(file, cluster.content);
    if (!checksum || checksum->end() > cluster.end()) return false;
    if (checksum->id != id_checksum) return true;
    if (checksum->size != checksum_bytes || cluster.size > most_cluster_bytes) return false;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(cluster.end() - checksum->content));
    const ssize_t got = ::pread(file, bytes.data(), bytes.size(), static_cast<off_t>(checksum->content));
    if (got != static_cast<ssize_t>(bytes.size())) return false;
    const std::uint32_t sum =
        libdeflate_crc32(0, bytes.data() + checksum_bytes, bytes.size() - checksum_bytes);
    for (std::size_t i = 0; i < checksum_bytes; ++i)
        if (bytes[i] != static_cast<std::uint8_t>(sum >> (8 * i))) return false;
    return true;
}

/// Follows the elements of the segment to the first that is not whole, or to the end. After a power
/// cut the last clusters may be there by their size only.
void follow(int file, Layout& layout) {
    std::deque<Element> clusters;  // the last ones
    std::uint64_t at = layout.segment->content;
    while (at < layout.length) {
        const auto element = element_at(file, at);
        if (!element || element->size > layout.length || element->end() > layout.length) break;
        if (element->id == id_seek_head && clusters.empty()) layout.contents = element;
        if (element->id == id_cluster) clusters.push_back(*element);
        if (clusters.size() > most_checked) {
            layout.playable = clusters.front().end();
            clusters.pop_front();
        }
        at = element->end();
    }
    while (!clusters.empty() && !intact(file, clusters.back()))
        clusters.pop_back();
    if (!clusters.empty()) layout.playable = clusters.back().end();
}

Layout layout_of(int file, const fs::path& movie) {
    Layout layout;
    struct stat status {};
    if (::fstat(file, &status) != 0)
        throw Failure("cannot read '" + movie.string() + "': " + error_text(errno));
    layout.length = static_cast<std::uint64_t>(status.st_size);
    layout.changed = status.st_mtim;
    const auto header = element_at(file, 0);
    if (!header || header->id != id_header) {
        layout.ours = layout.length < stump_bytes;
        return layout;
    }
    layout.ours = true;
    if (header->size > layout.length) return layout;
    layout.segment = element_at(file, header->end());
    if (!layout.segment || layout.segment->id != id_segment) {
        layout.segment.reset();
        return layout;
    }
    layout.closed = layout.segment->size != unknown_size && layout.segment->end() == layout.length;
    if (layout.closed) {
        layout.playable = layout.length;
    } else {
        follow(file, layout);
    }
    return layout;
}

void overwrite(int file, std::uint64_t at, const std::uint8_t* bytes, std::size_t count,
               const fs::path& movie) {
    if (::pwrite(file, bytes, count, static_cast<off_t>(at)) != static_cast<ssize_t>(count))
        throw Failure("cannot repair '" + movie.string() + "': " + error_text(errno));
}

/// A closing that was interrupted: what it filled in already speaks of parts that will be gone.
void withdraw_closing(int file, const Layout& layout, const fs::path& movie) {
    const Element& segment = *layout.segment;
    const std::array<std::uint8_t, 8> unknown{0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    if (segment.size != unknown_size && segment.content - segment.begin == 4 + segment_size_bytes)
        overwrite(file, segment.begin + 4, unknown.data(), unknown.size(), movie);
    if (!layout.contents || layout.contents->end() - layout.contents->begin < 9) return;
    const std::uint64_t size = layout.contents->end() - layout.contents->begin - 9;
    std::array<std::uint8_t, 9> empty{id_void, 0x01};
    for (std::size_t i = 0; i < 7; ++i)
        empty[8 - i] = static_cast<std::uint8_t>(size >> (8 * i));
    overwrite(file, layout.contents->begin, empty.data(), empty.size(), movie);
}

Repair removed_segment(const fs::path& stem) {
    for (const char* extension : segment_extensions) {
        const std::string file = stem.string() + extension;
        if (::unlink(file.c_str()) != 0 && errno != ENOENT)
            throw Failure("cannot remove '" + file + "': " + error_text(errno));
    }
    return Repair::removed;
}

using Changed = std::pair<std::int64_t, std::string>;  // when, and what

/// Those that were changed last.
std::vector<Changed> newest(const std::vector<Changed>& some, std::size_t most) {
    std::vector<Changed> all = some;
    std::sort(all.rbegin(), all.rend());
    if (all.size() > most) all.resize(most);
    return all;
}

/// Stems of movies that a camera wrote last. Names do not tell, for the clock may have been set back.
std::vector<Changed> newest_stems(const fs::path& folder, int camera) {
    constexpr std::size_t most_days = 3, most_segments = 2;
    std::vector<Changed> days;
    for (const int day : recorded_days(folder, camera)) {
        struct stat status {};
        if (::stat((folder / day_folder(camera, day)).c_str(), &status) == 0)
            days.emplace_back(changed_ms(status), std::to_string(day));
    }
    std::vector<Changed> found;
    for (const auto& [changed, day] : newest(days, most_days)) {
        std::vector<Changed> stems;
        for (const SegmentFile& file : segment_files(folder, camera, std::stoi(day)))
            if (file.extension == ".mkv")
                stems.emplace_back(changed_ms(file.status), stem_path(file.name).string());
        for (const auto& stem : newest(stems, most_segments))
            found.push_back(stem);
    }
    return found;
}

/// Of all cameras: what was changed last, and what was being written. The clock may have been set back
/// meanwhile, so that what an earlier process wrote looks newer.
std::set<std::string> suspects(const fs::path& folder) {
    std::set<std::string> stems;
    for (const int camera : recorded_cameras(folder))
        for (const auto& [changed, stem] : newest_stems(folder, camera))
            stems.insert(stem);
    std::error_code ignored;
    for (const fs::path& stem : noted_segments(folder))
        if (fs::exists(folder / (stem.string() + ".mkv"), ignored)) stems.insert(stem.string());
    return stems;
}

}  // namespace

Repair repair_segment(const fs::path& stem) {
    const fs::path movie = stem.string() + ".mkv";
    const Descriptor file(::open(movie.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!file) throw Failure("cannot open '" + movie.string() + "': " + error_text(errno));
    const Layout layout = layout_of(file.get(), movie);
    if (!layout.ours) return Repair::foreign;
    if (layout.closed) return Repair::none;
    if (layout.playable == 0) return removed_segment(stem);
    if (layout.playable == layout.length && layout.segment->size == unknown_size) return Repair::none;
    withdraw_closing(file.get(), layout, movie);
    if (::ftruncate(file.get(), static_cast<off_t>(layout.playable)) != 0)
        throw Failure("cannot repair '" + movie.string() + "': " + error_text(errno));
    const timespec times[2] = {{0, UTIME_OMIT}, layout.changed};  // it still ended when it did
    ::futimens(file.get(), times);
    return Repair::cut;
}

std::vector<RepairedSegment> repair_newest_segments(const fs::path& folder) {
    std::vector<RepairedSegment> repaired;
    for (const std::string& stem : suspects(folder)) {
        RepairedSegment segment{stem, Repair::none, ""};
        try {
            segment.repair = repair_segment(folder / stem);
        } catch (const Failure& failure) {
            segment.error = failure.what();
        }
        if (segment.repair != Repair::none || !segment.error.empty()) repaired.push_back(segment);
    }
    return repaired;
}

Playable playable_part(const fs::path& movie) {
    const Descriptor file(::open(movie.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) throw Failure("cannot open '" + movie.string() + "': " + error_text(errno));
    const Layout layout = layout_of(file.get(), movie);
    return {layout.playable, layout.closed};
}

}  // namespace plendix
