// The recording of one camera: its frames into files, and what there is to tell about them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "host/event.h"
#include "host/picture_format.h"
#include "record/matroska_writer.h"

namespace plendix {

struct Arrival;

struct CameraTotals {
    std::uint64_t frames = 0;  // that the plug-in delivered
    std::uint64_t bytes = 0;
    std::uint64_t key_frames = 0;
    std::uint64_t recorded = 0;    // frames in the files
    std::uint64_t unreadable = 0;  // not recorded: they do not tell what they are
    std::uint64_t unstarted = 0;   // not recorded: no key frame since the stream began or had a gap
    std::int64_t first_ms = 0;     // times of the first and the last frame
    std::int64_t last_ms = 0;
    std::uint64_t motion_events = 0;
    std::uint64_t lost_blocks = 0;  // pictures given up; the plug-in names one missing block of each
    std::uint64_t timeouts = 0;     // transfers that stalled
    std::uint64_t connections = 0;  // beginnings of video
    std::uint64_t reconnections() const { return connections > 1 ? connections - 1 : 0; }
};

/// Files are called camera-N.mkv; a new codec, size or parameter set begins camera-N-2.mkv
/// and so on. One thread.
class CameraRecorder {
public:
    /// Writes into the current directory.
    explicit CameraRecorder(int number);

    /// Records one frame; returns an event when the recording mark changed with it.
    std::optional<Event> frame(const Arrival& arrival);
    /// Counts what an event of this camera says.
    void count(const Event& event);
    void close();

    int number() const { return number_; }
    const CameraTotals& totals() const { return totals_; }
    const std::vector<std::filesystem::path>& files() const { return files_; }
    /// Of the file written last; not usable before the first frame.
    const PictureFormat& format() const { return format_; }

private:
    void jpeg(const Arrival& arrival);
    void h264(const Arrival& arrival);
    void use_file_for(const PictureFormat& format, std::int64_t start_ms);
    void store(const Bytes& picture, const Arrival& arrival);

    int number_;
    CameraTotals totals_;
    std::vector<std::filesystem::path> files_;
    PictureFormat format_;
    std::unique_ptr<MatroskaWriter> writer_;
    bool needs_key_ = true;
    bool marked_ = false;
};

}  // namespace plendix
