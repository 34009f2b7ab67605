// One Matroska file with one video track.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "container/matroska_cluster.h"
#include "host/frame.h"
#include "host/picture_format.h"
#include "record/growing_file.h"

namespace plendix {

/// Where a player may begin.
struct MatroskaCue {
    std::int64_t time_ms;
    std::uint64_t position;  // of the cluster, in the file
};

/// Writes frames so that the file can be played at any moment, even when its writer was killed:
/// every frame is a cluster of its own that has left the process when `write` returns. Closing adds
/// duration and index. When the disk refuses, WriteFailure is thrown and the file keeps all frames
/// that are whole and nothing else; it takes no more then. A frame goes to the system from where it
/// lies: it is read once for its checksum and copied by nobody else.
class MatroskaWriter {
public:
    /// The file must not exist. `start_ms` (UTC since 1970) becomes its date, and with that the
    /// time of its first frame. H.264 parameter sets are those of a byte stream, or as another such
    /// file has them; then the pictures, too.
    MatroskaWriter(const std::filesystem::path& file, PictureFormat format, std::int64_t start_ms);
    ~MatroskaWriter();
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    /// A JPEG picture, or the units of an H.264 picture. `time_ms` counts from the first frame. No
    /// two frames have the same time, which players and muxers take amiss: one that is not later than
    /// the last counts as a millisecond after it.
    void write(const Pieces& picture, bool key, std::int64_t time_ms);
    /// Throws WriteFailure when there is no room for the index: the file plays without it.
    void close();

    const std::filesystem::path& path() const { return file_.path(); }
    std::uint64_t bytes() const { return file_.size(); }
    std::uint64_t frames() const { return frames_; }  // that are kept
    /// False when the path leads to another file by now, or to none.
    bool in_place() const { return file_.in_place(); }

private:
    GrowingFile file_;
    const PictureFormat format_;
    const std::int64_t start_ms_;
    MatroskaCluster cluster_;
    bool open_ = true;
    std::int64_t last_ms_ = -1;
    std::uint64_t frames_ = 0;
    std::vector<MatroskaCue> cues_;
};

}  // namespace plendix
