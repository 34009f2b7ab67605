#include "field/capture_ring.h"

#include <sys/stat.h>

#include <cerrno>
#include <numeric>
#include <utility>

#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr int segments_of_ring = 20;  // so much more than asked for is kept, at most: a twentieth
constexpr std::uint64_t least_segment = 64U << 10U;
constexpr std::size_t digits = 8;

/// In the order in which `cat` and a shell's star join them, the joined file first.
fs::path segment_file(const fs::path& folder, std::uint64_t number) {
    const std::string text = std::to_string(number);
    return folder / (std::string(digits - std::min(digits, text.size()), '0') + text + ".pcapng");
}

void make_folder(const fs::path& folder) {
    if (mkdir(folder.c_str(), 0700) == 0) return;
    if (errno != EEXIST) throw Failure("cannot make '" + folder.string() + "': " + error_text(errno));
    throw Failure("'" + folder.string() + "' holds what an earlier capture kept: join it with cat " +
                  (folder / "*").string() + " >FILE, or remove it");
}

}  // namespace

fs::path ring_folder(const fs::path& file) {
    fs::path folder = file;
    return folder += ".ring";
}

CaptureRing::CaptureRing(fs::path file, CaptureDescription description, const Bounds& bounds)
    : file_(std::move(file)),
      folder_(ring_folder(file_)),
      description_(std::move(description)),
      bounds_(bounds) {
    require_new(file_);
    make_folder(folder_);
}

CaptureRing::~CaptureRing() {
    std::error_code not_empty;
    fs::remove(folder_, not_empty);
}

void CaptureRing::write(const CapturedPacket& packet, Time now) {
    if (writer_ && (now - segments_.back().begin >= bounds_.time / segments_of_ring ||
                    writer_->size() >= std::max(bounds_.bytes / segments_of_ring, least_segment)))
        end_segment();
    if (!writer_) begin_segment(packet.time_ns, now);
    writer_->write(packet);
    last_ns_ = packet.time_ns;
    Segment& segment = segments_.back();
    segment.end = now;
    segment.bytes = writer_->size();
    ++segment.packets;
    if (bytes() > bounds_.bytes) remove_old(now);
}

void CaptureRing::flush(Time now) {
    if (writer_) writer_->flush();
    remove_old(now);
}

void CaptureRing::begin_segment(std::int64_t first_ns, Time now) {
    const fs::path file = segment_file(folder_, ++made_);
    writer_ = std::make_unique<CaptureWriter>(file, description_);
    segments_.push_back({file, now, now, 0, writer_->size(), first_ns});
}

void CaptureRing::end_segment() {
    writer_->flush();
    writer_.reset();
}

std::uint64_t CaptureRing::bytes() const {
    return std::accumulate(segments_.begin(), segments_.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Segment& segment) { return sum + segment.bytes; });
}

/// The one that is being written stays.
void CaptureRing::remove_old(Time now) {
    while (segments_.size() > 1) {
        const bool old = now - segments_.front().end > bounds_.time;
        if (!old && bytes() <= bounds_.bytes) return;
        if (!old) short_of_room_ = true;
        std::error_code ignored;  // a file that stays takes room, and no capture ends for that
        fs::remove(segments_.front().file, ignored);
        segments_.pop_front();
    }
}

CaptureOutput::Kept CaptureRing::kept() const {
    Kept kept;
    kept.bytes = bytes();
    kept.short_of_room = short_of_room_;
    if (!segments_.empty()) kept.first_ns = segments_.front().first_ns;
    kept.last_ns = last_ns_;
    for (const Segment& segment : segments_)
        kept.packets += segment.packets;
    return kept;
}

void CaptureRing::copy_segments(CaptureWriter& to) {
    CapturedPacket packet;
    for (; !segments_.empty(); segments_.pop_front()) {
        CaptureReader reader(segments_.front().file);
        while (reader.next(packet))
            to.write(packet);
        to.flush();
        std::error_code ignored;
        fs::remove(segments_.front().file, ignored);
    }
}

void CaptureRing::finish(const CaptureCounts& counts) {
    if (writer_) end_segment();
    const fs::path whole = segment_file(folder_, 0);
    {
        CaptureWriter writer(whole, description_);
        copy_segments(writer);
        writer.finish(counts);
    }
    require_new(file_);
    std::error_code error;
    fs::rename(whole, file_, error);
    if (error) throw Failure("cannot make '" + file_.string() + "': " + error.message());
}

}  // namespace plendix
