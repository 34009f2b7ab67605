// One Matroska file with one video track.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/frame.h"
#include "host/picture_format.h"
#include "record/growing_file.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

namespace plendix {

/// Writes frames so that the file can be played at any moment, even when its writer was killed:
/// every frame is a cluster of its own that has left the process when `write` returns. Closing adds
/// duration and index. When the disk refuses, WriteFailure is thrown and the file keeps all frames
/// that are whole and nothing else; it takes no more then.
class MatroskaWriter {
public:
    /// The file must not exist. `start_ms` (UTC since 1970) becomes its date, and with that the
    /// time of its first frame.
    MatroskaWriter(const std::filesystem::path& file, const PictureFormat& format, std::int64_t start_ms);
    ~MatroskaWriter();
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    /// `time_ms` counts from the first frame. No two frames have the same time, which players and muxers
    /// take amiss: one that is not later than the last counts as a millisecond after it. The frame must
    /// stay as it is until `write` returns.
    void write(const Bytes& picture, bool key, std::int64_t time_ms);
    /// Throws WriteFailure when there is no room for the index: the file plays without it.
    void close();

    const std::filesystem::path& path() const { return file_.path(); }
    std::uint64_t bytes() const { return file_.whole_bytes(); }
    std::uint64_t frames() const { return frames_; }  // that are kept
    /// False when the path leads to another file by now, or to none.
    bool in_place() const { return file_.in_place(); }

private:
    void open(const PictureFormat& format, std::int64_t start_ms);
    void add_track(const PictureFormat& format);
    void write_packet(AVPacket& packet);
    void require(int result, const char* what) const;
    void release();

    GrowingFile file_;
    std::int64_t last_ms_ = -1;
    std::uint64_t frames_ = 0;
    AVFormatContext* context_ = nullptr;
    AVIOContext* io_ = nullptr;
};

}  // namespace plendix
