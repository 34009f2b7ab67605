// One Matroska file with one video track.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/picture_format.h"

struct AVFormatContext;

namespace plendix {

/// Writes frames so that the file can be played at any moment, even when its writer was killed:
/// every frame is a cluster of its own that has left the process when `write` returns. Closing
/// adds duration and index. Throws Failure when the disk refuses.
class MatroskaWriter {
public:
    /// Replaces the file. `start_ms` (UTC since 1970) becomes the file's date, and with that
    /// the time of its first frame.
    MatroskaWriter(std::filesystem::path file, const PictureFormat& format, std::int64_t start_ms);
    ~MatroskaWriter();
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;

    /// Frame times never go back in a file: an earlier time than the last one counts as that.
    void write(const Bytes& picture, bool key, std::int64_t time_ms);
    void close();

    const std::filesystem::path& path() const { return path_; }

private:
    void add_track(const PictureFormat& format);
    void require(int result, const char* what) const;

    std::filesystem::path path_;
    std::int64_t start_ms_;
    std::int64_t last_ms_ = 0;  // since start_ms_
    AVFormatContext* context_ = nullptr;
    bool header_written_ = false;
};

}  // namespace plendix
